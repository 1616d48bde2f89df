#pragma once

#include <vector>

#include "Kiv/Entity.h"

namespace Oskel {

// One difference found by a verify command.
class VerifyOutput {
  public:
   VerifyOutput() = default;
   VerifyOutput(Kiv::String message, Kiv::String file, U32 line, Kiv::String function, U32 severity)
       : message_(std::move(message)),
         file_(std::move(file)),
         line_(line),
         function_(std::move(function)),
         severity_(severity) {}
   Kiv::String const& message() const { return message_; }
   Kiv::String const& file() const { return file_; }
   U32 line() const { return line_; }
   Kiv::String const& function() const { return function_; }
   U32 severity() const { return severity_; }
   bool operator==(VerifyOutput const& o) const = default;

  private:
   Kiv::String message_;
   Kiv::String file_;
   U32 line_ = 0;
   Kiv::String function_;
   U32 severity_ = 0;
};

// Where the agent's verify command collects what it found.
class VerifyData : public Kiv::Entity {
  public:
   struct CliLine {
      Kiv::String function;
      Kiv::String message;
      bool operator==(CliLine const& o) const = default;
   };

   void verifyOutputIs(VerifyOutput const& o) { outputs_.push_back(o); }
   std::vector<VerifyOutput> const& verifyOutputs() const { return outputs_; }
   void updateCliVerifyOutput(Kiv::String function, Kiv::String message) {
      cliOutput_.push_back({std::move(function), std::move(message)});
   }
   std::vector<CliLine> const& cliVerifyOutput() const { return cliOutput_; }
   void clear() {
      outputs_.clear();
      cliOutput_.clear();
   }

  private:
   std::vector<VerifyOutput> outputs_;
   std::vector<CliLine> cliOutput_;
};

}  // namespace Oskel
