#pragma once

#include <string>
#include <utility>

#include "rehearse/proof/call_names.hpp"
#include "rehearse/proof/tracer.hpp"

namespace rehearse {

/// Decides the fate of the call with a name, and remembers the call.
class AtCall {
 public:
  AtCall(std::string name, Fate fate) : name_(std::move(name)), fate_(fate) {}

  Watcher watcher() {
    return {.before = [this](const SystemCall& call) {
      if (isReached_ || names_.next(call) != name_)
        return Fate{};
      isReached_ = true;
      return fate_;
    }};
  }

  bool isReached() const { return isReached_; }

 private:
  std::string name_;
  Fate fate_;
  CallNames names_;
  bool isReached_ = false;
};

}  // namespace rehearse
