#pragma once

// The transcript for a person: the lines of the simulator's standard output.

#include <cstdio>
#include <string>
#include <vector>

#include "host/transcript/TranscriptEvent.h"

namespace NimbalHost {

class TextTranscript : public TranscriptWriter {
  public:
   explicit TextTranscript(std::FILE* out) : out_(out) {}
   void write(TranscriptEvent const& e) override;

  private:
   std::FILE* out_;
};

// The text of an event: its lines, each with its new line.
std::string eventText(TranscriptEvent const& e);

// "1 key", "2 keys".
std::string counted(std::size_t n, std::string const& one, std::string const& many = "");
// Seconds with three decimals: 60.000.
std::string timeText(double seconds);

}  // namespace NimbalHost
