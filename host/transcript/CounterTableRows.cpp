#include "host/transcript/CounterTableRows.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

namespace NimbalHost {

namespace {

std::vector<std::string> lines(std::string const& text) {
   std::vector<std::string> out;
   std::size_t start = 0;
   for (std::size_t nl = text.find('\n'); nl != std::string::npos; nl = text.find('\n', start)) {
      out.push_back(text.substr(start, nl - start));
      start = nl + 1;
   }
   if (start != text.size()) {
      throw std::invalid_argument("the table does not end with a new line");
   }
   return out;
}

std::string trimmed(std::string const& s) {
   std::size_t const first = s.find_first_not_of(' ');
   if (first == std::string::npos) {
      return "";
   }
   return s.substr(first, s.find_last_not_of(' ') - first + 1);
}

// Takes the last blank-separated number off `s`.
long long lastNumber(std::string& s, std::string const& row) {
   std::size_t const end = s.find_last_not_of(' ');
   std::size_t const blank = end == std::string::npos ? std::string::npos : s.rfind(' ', end);
   if (blank == std::string::npos) {
      throw std::invalid_argument("no counter in the row \"" + row + "\"");
   }
   std::string const digits = s.substr(blank + 1, end - blank);
   std::size_t used = 0;
   long long value = 0;
   try {
      value = std::stoll(digits, &used);
   } catch (std::exception const&) {
      used = 0;
   }
   if (used != digits.size()) {
      throw std::invalid_argument("no counter in the row \"" + row + "\"");
   }
   s.erase(blank);
   return value;
}

}  // namespace

std::vector<CounterTableRow> counterTableRows(std::string const& table, bool hw,
                                              std::vector<std::string> const& interfaces) {
   std::vector<std::string> const all = lines(table);
   char header[128];
   std::snprintf(header, sizeof header, "%-15s %-26s %15s %15s", "Interface", "Queue", "Dropped",
                 "Allowed");
   std::vector<std::string> const heading =
       hw ? std::vector<std::string>{"Interface              Queue           Hits",
                                     std::string(52, '-')}
          : std::vector<std::string>{header};
   if (all.size() < heading.size() || !std::equal(heading.begin(), heading.end(), all.begin())) {
      throw std::invalid_argument(std::string("not the ") + (hw ? "hardware" : "software") +
                                  " CoPP counter table");
   }
   std::vector<CounterTableRow> rows;
   std::size_t i = heading.size();
   for (; i < all.size() && !all[i].empty(); ++i) {
      std::string rest = all[i];
      CounterTableRow row;
      if (hw) {
         row.hits = lastNumber(rest, all[i]);
      } else {
         row.allowed = lastNumber(rest, all[i]);
         row.dropped = lastNumber(rest, all[i]);
      }
      if (rest.empty() || rest.front() == ' ') {
         // A later row of the interface above.
         if (rows.empty()) {
            throw std::invalid_argument("the first row \"" + all[i] + "\" has no interface");
         }
         row.interface = rows.back().interface;
      } else {
         for (std::string const& name : interfaces) {
            bool const starts = rest.compare(0, name.size(), name) == 0 &&
                                (rest.size() == name.size() || rest[name.size()] == ' ');
            if (starts && name.size() > row.interface.size()) {
               row.interface = name;
            }
         }
         if (row.interface.empty()) {
            row.interface = rest.substr(0, rest.find(' '));
         }
         rest.erase(0, row.interface.size());
      }
      row.queue = trimmed(rest);
      if (row.queue.empty()) {
         throw std::invalid_argument("the row \"" + all[i] + "\" has no queue");
      }
      rows.push_back(row);
   }
   // The hardware table ends with empty lines, the software table with its last row.
   for (; i < all.size(); ++i) {
      if (!hw || !all[i].empty()) {
         throw std::invalid_argument("unexpected line \"" + all[i] + "\" after the rows");
      }
   }
   return rows;
}

}  // namespace NimbalHost
