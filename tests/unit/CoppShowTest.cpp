#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "Kiv/Type.h"
#include "Orvik/IntfNameCmp.h"
#include "SourceTree.h"
#include "unit/CoppHelperFixture.h"
#include "unit/CoppShowVerifyFixture.h"

// The C library's checked dprintf, which the show commands call for every line. This program's
// own definition comes first in symbol lookup: it records each call and, when asked, makes one
// of them fail for real by handing the C library a descriptor open for reading only, so that
// its write fails as a write to a broken CLI connection would.
extern "C" int __vdprintf_chk(int fd, int flag, char const* format, va_list args);

namespace {

struct LineWrite {
   int fd = 0;
   int flag = 0;
   int result = 0;
};

// Set by a test for its length; the write numbered failWrite fails.
std::vector<LineWrite>* lineWrites = nullptr;
std::size_t failWrite = static_cast<std::size_t>(-1);

}  // namespace

extern "C" int __dprintf_chk(int fd, int flag, char const* format, ...) {
   bool const fail = lineWrites && lineWrites->size() == failWrite;
   va_list args;
   va_start(args, format);
   static int const readOnly = ::open("/dev/null", O_RDONLY);
   int const result = __vdprintf_chk(fail ? readOnly : fd, flag, format, args);
   va_end(args);
   if (lineWrites) {
      lineWrites->push_back({fd, flag, result});
   }
   return result;
}

namespace {

// Records the line writes of its lifetime; `failing` numbers the one that fails (0 is the first).
class LineWrites {
  public:
   explicit LineWrites(std::size_t failing = static_cast<std::size_t>(-1)) {
      lineWrites = &writes_;
      failWrite = failing;
   }
   ~LineWrites() {
      lineWrites = nullptr;
      failWrite = static_cast<std::size_t>(-1);
   }
   LineWrites(LineWrites const&) = delete;
   LineWrites& operator=(LineWrites const&) = delete;
   std::vector<LineWrite> const& writes() const { return writes_; }

  private:
   std::vector<LineWrite> writes_;
};

using CoppShowVerifyTest::ShowOutput;
using CoppTest::TraceCapture;
using Oskel::ModIdPortQueueKey;

constexpr char const* hwHeader =
    "Interface              Queue           Hits\n"
    "----------------------------------------------------\n";
constexpr char const* swHeader =
    "Interface       Queue                              Dropped         Allowed\n";

std::string padRight(std::string const& s, std::size_t width) {
   return s.size() >= width ? s : s + std::string(width - s.size(), ' ');
}

std::string padLeft(std::string const& s, std::size_t width) {
   return s.size() >= width ? s : std::string(width - s.size(), ' ') + s;
}

// One row of the hardware table; the first row of an interface ends in a blank unless it is
// the default policer's.
std::string hwRow(std::string const& intf, std::string const& queue, long long hits,
                  bool trailingBlank = false) {
   return padRight(intf, 15) + " " + padRight(queue, 20) + " " + padLeft(std::to_string(hits), 15) +
          (trailingBlank ? " \n" : "\n");
}

std::string swRow(std::string const& intf, std::string const& queue, long long dropped,
                  long long allowed) {
   return padRight(intf, 15) + " " + padRight(queue, 26) + " " +
          padLeft(std::to_string(dropped), 15) + " " + padLeft(std::to_string(allowed), 15) + "\n";
}

std::string cpuQName(U32 queue) {
   return Nimbal::builtInCpuQTable().at(queue).name;
}

std::string goldenText(std::string const& name) {
   std::ifstream in(SourceTree::path("tests/golden/" + name));
   EXPECT_TRUE(in.good()) << name;
   std::stringstream text;
   text << in.rdbuf();
   return text.str();
}

class CoppShow : public CoppShowVerifyTest::CoppStateFixture {
  protected:
   std::string hwTable() {
      ShowOutput out;
      helper()->showCoppIntfCountersHw(out.fd());
      return out.text();
   }
   std::string swTable() {
      ShowOutput out;
      helper()->showCoppIntfCountersSw(out.fd());
      return out.text();
   }
   // The queues of an interface's counter record, in the record's own order.
   std::vector<U32> queuesOf(std::string const& intf) {
      std::vector<U32> out;
      for (auto const& [queue, count] :
           helper()->coppIntfCounterData(Orvik::IntfId(intf))->qCounterColCol()) {
         out.push_back(queue);
      }
      return out;
   }
   std::vector<std::string> counterIntfs() {
      std::vector<std::string> out;
      for (auto const& [intf, data] : helper()->coppIntfCounterDataCol()) {
         out.push_back(intf.stringValue());
      }
      return out;
   }
};

TEST_F(CoppShow, EmptyHardwareTableIsTheHeaderAndTwoEmptyLines) {
   EXPECT_EQ(hwTable(),
             "Interface              Queue           Hits\n"
             "----------------------------------------------------\n"
             "\n\n");
}

TEST_F(CoppShow, EmptySoftwareTableIsItsHeaderLine) {
   EXPECT_EQ(swTable(),
             "Interface       Queue                              Dropped         Allowed\n");
}

TEST_F(CoppShow, DefaultRowComesFirstAndQueueRowsFollowWithoutInterfaceName) {
   kernelEntry(1, 8, 1000, 100);
   kernelEntry(1, 1, 5000, 500);
   counterSlotIs("Ethernet1", 8);
   counterSlotIs("Ethernet1", 1);
   send(1, 8, 5);
   send(1, 1, 3);
   std::string expected = std::string(hwHeader) + hwRow("Ethernet1", "Default", 8);
   for (U32 queue : queuesOf("Ethernet1")) {
      expected += hwRow("", cpuQName(queue), queue == 8 ? 5 : 3);
   }
   EXPECT_EQ(hwTable(), expected + "\n\n");
}

TEST_F(CoppShow, FirstRowWithoutDefaultHitsEndsInABlank) {
   // Hits kept from a destroyed entry; the port's default entry has seen nothing.
   counterSlotIs("Ethernet3", 5, 7);
   EXPECT_EQ(hwTable(),
             std::string(hwHeader) + hwRow("Ethernet3", "CoppSystemLacp", 7, true) + "\n\n");
}

TEST_F(CoppShow, ContinuationRowsAfterAQueueRowHaveNoTrailingBlank) {
   counterSlotIs("Ethernet3", 5, 7);
   counterSlotIs("Ethernet3", 8, 9);
   std::string expected = hwHeader;
   bool first = true;
   for (U32 queue : queuesOf("Ethernet3")) {
      expected += hwRow(first ? "Ethernet3" : "", cpuQName(queue), queue == 5 ? 7 : 9, first);
      first = false;
   }
   EXPECT_EQ(hwTable(), expected + "\n\n");
}

TEST_F(CoppShow, InterfaceReadingZeroEverywhereHasNoHardwareRow) {
   counterSlotIs("Ethernet4", 5);
   kernelEntry(4, 8, 1000, 100);
   counterSlotIs("Ethernet4", 8);
   EXPECT_EQ(hwTable(), std::string(hwHeader) + "\n\n");
}

TEST_F(CoppShow, DefaultHitsAloneMakeADefaultRow) {
   counterSlotIs("Ethernet2", 5);
   send(2, 5, 4);
   EXPECT_EQ(hwTable(), std::string(hwHeader) + hwRow("Ethernet2", "Default", 4) + "\n\n");
}

TEST_F(CoppShow, StoredCountAddsToTheEntryHits) {
   kernelEntry(3, 8, 1000, 100);
   counterSlotIs("Ethernet3", 8, 10);
   send(3, 8, 4);
   EXPECT_EQ(hwTable(), std::string(hwHeader) + hwRow("Ethernet3", "Default", 4) +
                            hwRow("", "CoppSystemArp", 14) + "\n\n");
}

TEST_F(CoppShow, QueueTotalOfExactly2To32IsNotShown) {
   kernelEntry(3, 8, 1000, 100);
   counterSlotIs("Ethernet3", 8, (U64{1} << 32) - 3);
   counterSlotIs("Ethernet5", 5, U64{1} << 32);
   send(3, 8, 3);
   EXPECT_EQ(helper()->getIntfQueueCoppPolicerPktHits(port("Ethernet3"), 8), 3u);
   EXPECT_EQ(hwTable(), std::string(hwHeader) + hwRow("Ethernet3", "Default", 3) + "\n\n");
}

TEST_F(CoppShow, QueueTotalsAreShownModulo2To32) {
   kernelEntry(3, 8, 1000, 100);
   counterSlotIs("Ethernet3", 8, 0xFFFFFFFFu);
   counterSlotIs("Ethernet5", 5, (U64{1} << 32) + 7);
   send(3, 8, 2);
   std::string const table = hwTable();
   EXPECT_NE(table.find(hwRow("", "CoppSystemArp", 1)), std::string::npos) << table;
   EXPECT_NE(table.find(hwRow("Ethernet5", "CoppSystemLacp", 7, true)), std::string::npos) << table;
}

TEST_F(CoppShow, HardwareRowsFollowTheCounterCollectionOrder) {
   for (std::string name : {"Ethernet8", "Ethernet1", "Ethernet5", "Ethernet2", "Ethernet7",
                            "Ethernet3", "Ethernet6", "Ethernet4"}) {
      counterSlotIs(name, 5, name.back() - '0');
   }
   std::vector<std::string> const order = counterIntfs();
   std::vector<std::string> sorted = order;
   std::sort(sorted.begin(), sorted.end(), Orvik::intfNameCmp);
   // Otherwise this test could not tell the two orders apart.
   ASSERT_NE(order, sorted);
   std::string expected = hwHeader;
   for (std::string const& name : order) {
      expected += hwRow(name, "CoppSystemLacp", name.back() - '0', true);
   }
   EXPECT_EQ(hwTable(), expected + "\n\n");
}

TEST_F(CoppShow, SoftwareCountsFromTheLastFullClear) {
   counterSlotIs("Ethernet1", 8);
   sw().pktDrv()->ddeCoppCountersIs(0, 1, 8, 10, 50);
   helper()->clearCoppIntfSwCounterByPortQueue(ModIdPortQueueKey(0, 1, 8), false);
   EXPECT_EQ(swTable(), swHeader);
   sw().pktDrv()->ddeCoppCountersIs(0, 1, 8, 15, 80);
   EXPECT_EQ(swTable(), std::string(swHeader) + swRow("Ethernet1", "CoppSystemArp", 5, 30));
   // A configuration clear moves only the counter poll's baseline.
   helper()->clearCoppIntfSwCounterByPortQueue(ModIdPortQueueKey(0, 1, 8), true);
   EXPECT_EQ(swTable(), std::string(swHeader) + swRow("Ethernet1", "CoppSystemArp", 5, 30));
}

TEST_F(CoppShow, SoftwareCountsBelowTheSnapshotWrap) {
   counterSlotIs("Ethernet1", 8);
   sw().pktDrv()->ddeCoppCountersIs(0, 1, 8, 10, 50);
   helper()->clearCoppIntfSwCounterByPortQueue(ModIdPortQueueKey(0, 1, 8), false);
   // The driver's counters restarted after the clear.
   sw().pktDrv()->ddeCoppCountersIs(0, 1, 8, 2, 1);
   EXPECT_EQ(swTable(), std::string(swHeader) + swRow("Ethernet1", "CoppSystemArp", -8, -49));
}

TEST_F(CoppShow, SoftwareTableIgnoresTheStoredCount) {
   counterSlotIs("Ethernet1", 8, 99);
   EXPECT_EQ(swTable(), swHeader);
}

TEST_F(CoppShow, SoftwareNameOnlyOnTheFirstPrintedRow) {
   for (U32 queue : {1u, 5u, 8u}) {
      counterSlotIs("Ethernet1", queue);
   }
   sw().pktDrv()->ddeCoppCountersIs(0, 1, 5, 1, 2);
   sw().pktDrv()->ddeCoppCountersIs(0, 1, 8, 3, 4);
   sw().pktDrv()->ddeCoppCountersIs(0, 1, 1, 6, 6);
   helper()->clearCoppIntfSwCounterByPortQueue(ModIdPortQueueKey(0, 1, 1), false);
   std::string expected = swHeader;
   bool first = true;
   for (U32 queue : queuesOf("Ethernet1")) {
      if (queue == 1) {
         continue;
      }
      expected +=
          swRow(first ? "Ethernet1" : "", cpuQName(queue), queue == 5 ? 1 : 3, queue == 5 ? 2 : 4);
      first = false;
   }
   EXPECT_EQ(swTable(), expected);
}

TEST_F(CoppShow, InterfaceReadingZeroSinceTheClearHasNoSoftwareRow) {
   counterSlotIs("Ethernet1", 8);
   counterSlotIs("Ethernet2", 8);
   sw().pktDrv()->ddeCoppCountersIs(0, 1, 8, 4, 4);
   sw().pktDrv()->ddeCoppCountersIs(0, 2, 8, 0, 9);
   helper()->clearCoppIntfSwCounterByPortQueue(ModIdPortQueueKey(0, 1, 8), false);
   EXPECT_EQ(swTable(), std::string(swHeader) + swRow("Ethernet2", "CoppSystemArp", 0, 9));
}

// Hundreds of interfaces with a row on every queue.
class CoppShowLarge : public CoppShow {
  protected:
   NimbalHost::SwitchConfig switchConfig() const override {
      NimbalHost::SwitchConfig config;
      config.interfaces.clear();
      for (U16 p = 1; p <= 200; ++p) {
         config.interfaces.push_back({"Ethernet" + std::to_string(p), 0, p});
      }
      return config;
   }
};

TEST_F(CoppShowLarge, ALargeTableIsWrittenWholeAndInOrder) {
   std::vector<U32> const queues = {1, 5, 8, 12, 20, 30, 33, 35, 38, 39};
   std::vector<std::string> names;
   for (int p = 1; p <= 200; ++p) {
      std::string const name = "Ethernet" + std::to_string(p);
      names.push_back(name);
      for (U32 queue : queues) {
         counterSlotIs(name, queue);
         sw().pktDrv()->ddeCoppCountersIs(0, static_cast<U32>(p), queue, queue, 1000 + p);
      }
   }
   std::sort(names.begin(), names.end(), Orvik::intfNameCmp);
   std::string expected = swHeader;
   for (std::string const& name : names) {
      bool first = true;
      for (U32 queue : queuesOf(name)) {
         expected +=
             swRow(first ? name : "", cpuQName(queue), queue, 1000 + std::stoi(name.substr(8)));
         first = false;
      }
   }
   ASSERT_GT(expected.size(), 128u * 1024u);
   EXPECT_EQ(swTable(), expected);
}

class CoppShowNames : public CoppShow {
  protected:
   NimbalHost::SwitchConfig switchConfig() const override {
      NimbalHost::SwitchConfig config;
      config.modules = {{0, 0}, {1, 1}};
      config.interfaces = {{"Ethernet10", 0, 10},
                           {"Ethernet2", 0, 2},
                           {"Ethernet1/10", 0, 11},
                           {"Ethernet9", 1, 9},
                           {"Ethernet1/2", 0, 12}};
      config.fabricInterfaces = {{"Fabric3", 0, 20}};
      return config;
   }
};

TEST_F(CoppShowNames, SoftwareRowsFollowInterfaceNameOrder) {
   for (std::string name :
        {"Ethernet10", "Ethernet2", "Ethernet1/10", "Ethernet9", "Ethernet1/2"}) {
      counterSlotIs(name, 8);
      NimbalTypes::NimbalPort const p = port(name);
      sw().pktDrv()->ddeCoppCountersIs(p.unit(), p.logicalPort(), 8, 1, p.logicalPort());
   }
   EXPECT_EQ(swTable(), std::string(swHeader) + swRow("Ethernet1/2", "CoppSystemArp", 1, 12) +
                            swRow("Ethernet1/10", "CoppSystemArp", 1, 11) +
                            swRow("Ethernet2", "CoppSystemArp", 1, 2) +
                            swRow("Ethernet9", "CoppSystemArp", 1, 9) +
                            swRow("Ethernet10", "CoppSystemArp", 1, 10));
}

TEST_F(CoppShowNames, SoftwareRowsReadTheUnitAndModuleOfThePort) {
   // Ethernet9 is port 9 of module 1 on unit 1; unit 0's port 9 counts something else.
   counterSlotIs("Ethernet9", 8);
   sw().pktDrv()->ddeCoppCountersIs(1, 9, 8, 3, 30);
   sw().pktDrv()->ddeCoppCountersIs(0, 9, 8, 100, 100);
   Oskel::QosClassCounterData snapshot;
   snapshot.pktHitsIs(12);
   snapshot.dropIs(2);
   helper()->lastClearCoppSwCounterIs(ModIdPortQueueKey(1, 9, 8), snapshot);
   EXPECT_EQ(swTable(), std::string(swHeader) + swRow("Ethernet9", "CoppSystemArp", 1, 20));
}

TEST_F(CoppShowNames, FabricInterfacesAreTranslatedToo) {
   counterSlotIs("Fabric3", 8, 6);
   sw().pktDrv()->ddeCoppCountersIs(0, 20, 8, 0, 2);
   EXPECT_EQ(hwTable(),
             std::string(hwHeader) + hwRow("Fabric3", "CoppSystemArp", 6, true) + "\n\n");
   EXPECT_EQ(swTable(), std::string(swHeader) + swRow("Fabric3", "CoppSystemArp", 0, 2));
}

TEST_F(CoppShow, BothTablesTraceTheirSignature) {
   TraceCapture trace({"NimbalQosSm"});
   hwTable();
   swTable();
   ASSERT_EQ(trace.lines().size(), 2u);
   EXPECT_EQ(trace.lines()[0].text, "void Nimbal::QosAclHelperV1::showCoppIntfCountersHw(U32)");
   EXPECT_EQ(trace.lines()[0].level, 4);
   EXPECT_EQ(trace.lines()[1].text, "void Nimbal::QosAclHelperV1::showCoppIntfCountersSw(U32)");
   EXPECT_EQ(trace.lines()[1].level, 4);
}

TEST_F(CoppShow, NoTraceBelowLevelFour) {
   TraceCapture trace({"NimbalQosSm"}, 3);
   hwTable();
   swTable();
   EXPECT_TRUE(trace.lines().empty());
}

TEST_F(CoppShow, CounterRecordOfAnInterfaceWithoutPortIsFatalInTheHardwareTable) {
   counterSlotIs("Ethernet99", 5, 1);
   EXPECT_DEATH(hwTable(), "Assertion `!!sp' failed");
}

TEST_F(CoppShow, CounterRecordOfAnInterfaceWithoutPortIsFatalInTheSoftwareTable) {
   counterSlotIs("Ethernet99", 5, 1);
   EXPECT_DEATH(swTable(), "Assertion `!!sp' failed");
}

// The rows printed before a broken record ends the agent have reached the reader.
TEST_F(CoppShow, RowsBeforeAFatalRecordReachTheDescriptor) {
   std::string const path = ::testing::TempDir() + "CoppShowRowsBeforeAFatalRecord.txt";
   counterSlotIs("Ethernet1", 8);
   sw().pktDrv()->ddeCoppCountersIs(0, 1, 8, 3, 4);
   counterSlotIs("Ethernet99", 5, 1);
   std::FILE* file = std::fopen(path.c_str(), "w");
   ASSERT_NE(file, nullptr);
   EXPECT_DEATH(helper()->showCoppIntfCountersSw(static_cast<U32>(::fileno(file))),
                "Assertion `!!sp' failed");
   std::fclose(file);
   std::ifstream in(path);
   std::stringstream written;
   written << in.rdbuf();
   EXPECT_EQ(written.str(), std::string(swHeader) + swRow("Ethernet1", "CoppSystemArp", 3, 4));
   std::remove(path.c_str());
}

TEST_F(CoppShow, TablesAreShownByName) {
   kernelEntry(1, 8, 1000, 100);
   counterSlotIs("Ethernet1", 8);
   send(1, 8, 3);
   ShowOutput hw;
   EXPECT_EQ(Kiv::invoke(*helper(), "showCoppIntfCountersHw", {hw.fdText()}), "");
   EXPECT_EQ(hw.text(), std::string(hwHeader) + hwRow("Ethernet1", "Default", 3) +
                            hwRow("", "CoppSystemArp", 3) + "\n\n");
   ShowOutput swOut;
   EXPECT_EQ(Kiv::invoke(*helper(), "showCoppIntfCountersSw", {swOut.fdText()}), "");
   EXPECT_EQ(swOut.text(), std::string(swHeader) + swRow("Ethernet1", "CoppSystemArp", 0, 3));
}

TEST_F(CoppShow, FullClearByNameMovesBothBaselines) {
   sw().pktDrv()->ddeCoppCountersIs(0, 1, 8, 4, 6);
   EXPECT_EQ(Kiv::invoke(*helper(), "clearCoppIntfSwCounterByPortQueue", {"0", "1", "8", "false"}),
             "");
   ModIdPortQueueKey const key(0, 1, 8);
   ASSERT_TRUE(helper()->lastClearCoppSwCounterHas(key));
   EXPECT_EQ(helper()->lastClearCoppSwCounterCol().value(key)->pktHits(), 10u);
   EXPECT_EQ(helper()->lastClearCoppSwCounterCol().value(key)->drop(), 4u);
   EXPECT_EQ(helper()->lastClearCoppSwCfgCounterCol().value(key)->pktHits(), 10u);
}

TEST_F(CoppShow, ConfigurationClearByNameMovesOnlyThePollBaseline) {
   sw().pktDrv()->ddeCoppCountersIs(0, 2, 8, 1, 2);
   EXPECT_EQ(Kiv::invoke(*helper(), "clearCoppIntfSwCounterByPortQueue", {"0", "2", "8", "true"}),
             "");
   ModIdPortQueueKey const key(0, 2, 8);
   EXPECT_FALSE(helper()->lastClearCoppSwCounterHas(key));
   ASSERT_TRUE(helper()->lastClearCoppSwCfgCounterHas(key));
   EXPECT_EQ(helper()->lastClearCoppSwCfgCounterCol().value(key)->pktHits(), 3u);
}

class CoppShowGolden : public CoppShow {
  protected:
   NimbalHost::SwitchConfig switchConfig() const override {
      NimbalHost::SwitchConfig config;
      // Ports from 256 up have no per-port default entry.
      config.interfaces = {{"Ethernet1", 0, 1}, {"Ethernet2", 0, 2},   {"Ethernet3", 0, 3},
                           {"Ethernet4", 0, 4}, {"Ethernet10", 0, 10}, {"Ethernet300", 0, 300}};
      return config;
   }

   void create(U32 port, U32 queue) {
      EXPECT_TRUE(helper()->createCoppPolicerByPortQueue(ModIdPortQueueKey(0, port, queue)));
   }

   // The port-queue entries as the agent asks for them, with the default rates of their queues
   // (a user queue with a class's rate), and traffic through the chip. Ethernet3 and Ethernet4
   // lose their entries again; Ethernet4 has seen nothing.
   void runTraffic() {
      sw().kernelCoppConfig()->coppInfoIs(ModIdPortQueueKey(0, 2, 40),
                                          Oskel::CoppInfo(1000, 6, 10, true));
      create(1, 8);
      create(1, 1);
      create(2, 40);
      create(3, 5);
      create(4, 5);
      create(10, 24);
      create(300, 8);
      EXPECT_EQ(send(1, 8, 30), 30);
      EXPECT_EQ(send(1, 1, 20), 20);
      EXPECT_EQ(send(2, 40, 25), 10);
      EXPECT_EQ(send(3, 5, 7), 7);
      EXPECT_EQ(send(10, 24, 60), 50);
      EXPECT_EQ(send(300, 8, 12), 12);
      helper()->destroyCoppPolicerByPortQueue(ModIdPortQueueKey(0, 3, 5));
      helper()->destroyCoppPolicerByPortQueue(ModIdPortQueueKey(0, 4, 5));
      EXPECT_EQ(
          Kiv::invoke(*helper(), "clearCoppIntfSwCounterByPortQueue", {"0", "1", "8", "false"}),
          "");
      EXPECT_EQ(send(1, 8, 10), 10);
   }
};

TEST_F(CoppShowGolden, HardwareTableOfASwitchWithTraffic) {
   runTraffic();
   ShowOutput out;
   Kiv::invoke(*helper(), "showCoppIntfCountersHw", {out.fdText()});
   EXPECT_EQ(out.text(), goldenText("CoppIntfCountersHw.txt"));
}

TEST_F(CoppShowGolden, SoftwareTableOfASwitchWithTraffic) {
   runTraffic();
   ShowOutput out;
   Kiv::invoke(*helper(), "showCoppIntfCountersSw", {out.fdText()});
   EXPECT_EQ(out.text(), goldenText("CoppIntfCountersSw.txt"));
}

}  // namespace

namespace {

// Every line of a table is one checked descriptor write of its own (flag 1), made as the line is
// printed: nothing is held back, so a write that fails loses its own line and no other.
class CoppShowWrites : public CoppShow {
  protected:
   // Three interfaces with hardware rows: a default row and a queue row on Ethernet1, one queue
   // row on each of Ethernet2 and Ethernet3.
   void hardwareRowsAre() {
      kernelEntry(1, 8, 1000, 100);
      counterSlotIs("Ethernet1", 8);
      send(1, 8, 3);
      counterSlotIs("Ethernet2", 5, 4);
      counterSlotIs("Ethernet3", 12, 6);
   }
   // Software rows on three interfaces, two on Ethernet2.
   void softwareRowsAre() {
      for (auto const& [port, queue] :
           std::vector<std::pair<U32, U32>>{{1, 8}, {2, 5}, {2, 12}, {3, 1}}) {
         counterSlotIs("Ethernet" + std::to_string(port), queue);
         sw().pktDrv()->ddeCoppCountersIs(0, port, queue, queue, 10 * port + queue);
      }
   }
   // The table's lines, in order, each with its newline.
   static std::vector<std::string> lines(std::string const& text) {
      std::vector<std::string> out;
      std::size_t start = 0;
      while (start < text.size()) {
         std::size_t const end = text.find('\n', start);
         out.push_back(text.substr(start, end - start + 1));
         start = end + 1;
      }
      return out;
   }
   static std::string joined(std::vector<std::string> const& lines, std::size_t without) {
      std::string out;
      for (std::size_t i = 0; i < lines.size(); ++i) {
         if (i != without) {
            out += lines[i];
         }
      }
      return out;
   }
};

TEST_F(CoppShowWrites, EveryHardwareLineIsOneCheckedWriteToTheDescriptor) {
   hardwareRowsAre();
   ShowOutput out;
   LineWrites record;
   helper()->showCoppIntfCountersHw(out.fd());
   std::vector<std::string> const written = lines(out.text());
   // Two header lines, four rows and the trailer of two empty lines, written at once.
   ASSERT_EQ(written.size(), 8u);
   ASSERT_EQ(record.writes().size(), 7u);
   for (LineWrite const& w : record.writes()) {
      EXPECT_EQ(w.fd, static_cast<int>(out.fd()));
      EXPECT_EQ(w.flag, 1);
      EXPECT_GT(w.result, 0);
   }
}

TEST_F(CoppShowWrites, EverySoftwareLineIsOneCheckedWriteToTheDescriptor) {
   softwareRowsAre();
   ShowOutput out;
   LineWrites record;
   helper()->showCoppIntfCountersSw(out.fd());
   ASSERT_EQ(lines(out.text()).size(), 5u);
   ASSERT_EQ(record.writes().size(), 5u);
   for (LineWrite const& w : record.writes()) {
      EXPECT_EQ(w.fd, static_cast<int>(out.fd()));
      EXPECT_EQ(w.flag, 1);
      EXPECT_GT(w.result, 0);
   }
}

TEST_F(CoppShowWrites, AFailedHardwareRowLosesThatRowOnlyAndTheAgentGoesOn) {
   hardwareRowsAre();
   std::string const whole = hwTable();
   std::vector<std::string> const wholeLines = lines(whole);
   // Each row in turn: the third write is the first row after the header.
   for (std::size_t failing = 2; failing < 6; ++failing) {
      ShowOutput out;
      {
         LineWrites record(failing);
         helper()->showCoppIntfCountersHw(out.fd());
         ASSERT_EQ(record.writes().size(), 7u);
         EXPECT_LT(record.writes()[failing].result, 0);
      }
      EXPECT_EQ(out.text(), joined(wholeLines, failing)) << "write " << failing << " failed";
   }
   // The agent goes on: the next table is whole.
   EXPECT_EQ(hwTable(), whole);
}

TEST_F(CoppShowWrites, AFailedSoftwareRowLosesThatRowOnlyAndTheAgentGoesOn) {
   softwareRowsAre();
   std::string const whole = swTable();
   std::vector<std::string> const wholeLines = lines(whole);
   ASSERT_EQ(wholeLines.size(), 5u);
   ShowOutput out;
   {
      LineWrites record(2);
      helper()->showCoppIntfCountersSw(out.fd());
      ASSERT_EQ(record.writes().size(), 5u);
      EXPECT_LT(record.writes()[2].result, 0);
   }
   EXPECT_EQ(out.text(), joined(wholeLines, 2));
   EXPECT_EQ(swTable(), whole);
}

}  // namespace
