#pragma once

// The transcript for programs: JSON Lines, one object per event, each with the event's kind
// ("event"), its virtual time in seconds ("time") and the step it belongs to ("step").
// host/transcript/transcript.schema.json describes every kind.

#include <cstdio>
#include <nlohmann/json.hpp>

#include "host/transcript/TranscriptEvent.h"

namespace NimbalHost {

class JsonTranscript : public TranscriptWriter {
  public:
   explicit JsonTranscript(std::FILE* out) : out_(out) {}
   void write(TranscriptEvent const& e) override;

  private:
   std::FILE* out_;
};

nlohmann::ordered_json eventJson(TranscriptEvent const& e);

}  // namespace NimbalHost
