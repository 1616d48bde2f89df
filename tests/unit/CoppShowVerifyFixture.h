#pragma once

// A switch with the per-(port, queue) CoPP state that the show and verify commands read, made
// the way the port-queue code makes it: a counting egress entry with a meter, its record, and the
// interface's counter slot.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "Nimbal/StatTypes.h"
#include "NimbalQos/NimbalQosProtectionHelper.h"
#include "unit/SwitchFixture.h"

namespace CoppShowVerifyTest {

// A file that a show command writes to by descriptor; its text is read back whole.
class ShowOutput {
  public:
   ShowOutput() : file_(std::tmpfile()) {}
   ~ShowOutput() { std::fclose(file_); }
   ShowOutput(ShowOutput const&) = delete;
   ShowOutput& operator=(ShowOutput const&) = delete;

   U32 fd() const { return static_cast<U32>(::fileno(file_)); }
   std::string fdText() const { return std::to_string(fd()); }
   std::string text() const {
      std::string out;
      char buf[4096];
      ::off_t offset = 0;
      for (;;) {
         ::ssize_t const n = ::pread(::fileno(file_), buf, sizeof(buf), offset);
         if (n <= 0) {
            break;
         }
         out.append(buf, static_cast<std::size_t>(n));
         offset += n;
      }
      return out;
   }

  private:
   std::FILE* file_;
};

class CoppStateFixture : public SwitchTest::SwitchFixture {
  protected:
   struct KernelEntry {
      U32 entry = 0;
      U32 policer = 0;
   };

   // An installed egress entry for packets from `port` to `queue`, metered at (cir, bc) and
   // dropping red, recorded in kernelDynamicCoppData.
   KernelEntry kernelEntry(U32 port, U32 queue, U32 cir, U32 bc, U16 unit = 0, U16 modId = 0) {
      Nimbal::StatTypes statTypes;
      statTypes.typeIs(0, sdk().coppStatType(0));
      statTypes.typeIs(1, sdk().coppStatType(1));
      KernelEntry k;
      k.entry = sw().efpCoppEntryMgr()->getEntryWithStats(unit, "test kernel entry",
                                                          Nimbal::RequestKey(), statTypes);
      EXPECT_NE(k.entry, 0u);
      Nimbal::setCoppEntryQual(unit, k.entry, port, 0xFFFFFFFF, static_cast<U8>(queue), 0x3F, 0, 0);
      k.policer = Nimbal::installCoppPolicer(unit, k.entry, cir, bc, sw().tcamGroupManager(),
                                             sw().efpCoppEntryMgr());
      EXPECT_NE(k.policer, 0xFFFFFFFFu);
      auto const record =
          helper()->kernelDynamicCoppDataIs(Oskel::ModIdPortQueueKey(modId, port, queue));
      record->entryIs(k.entry);
      record->policerIdIs(k.policer);
      return k;
   }

   // The counter slot that the port-queue code keeps for an interface's queue.
   void counterSlotIs(std::string const& intf, U32 queue, U64 stored = 0) {
      helper()
          ->coppIntfCounterDataIs(Orvik::IntfId(intf))
          ->qCounterColIs(queue, Nimbal::NimbalQosCoppQCounterData(stored));
   }

   // Packets to the CPU through the chip and the packet driver; how many got through.
   int send(U32 port, U32 queue, int packets, U32 unit = 0) {
      int allowed = 0;
      for (int i = 0; i < packets; ++i) {
         allowed += sw().pktDrv()->sendToCpu(unit, port, queue) ? 1 : 0;
      }
      return allowed;
   }
};

}  // namespace CoppShowVerifyTest
