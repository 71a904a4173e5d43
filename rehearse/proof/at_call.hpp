#pragma once

#include <utility>
#include <vector>

#include "rehearse/proof/call_names.hpp"
#include "rehearse/proof/recording.hpp"
#include "rehearse/proof/tracer.hpp"

namespace rehearse {

/// Decides the fate of one call.
class AtCall {
 public:
  AtCall(const Material& material, RecordedCall call, Fate fate)
      : call_(std::move(call)), fate_(fate), names_(material.updater.filename()) {}

  Watcher watcher() {
    return {.before =
                [this](const SystemCall& call) {
                  if (isReached_ || names_.next(call) != call_.name)
                    return Fate{};
                  isReached_ = true;
                  return fate_;
                },
            .calls = std::vector<long>{call_.call.number}};
  }

  bool isReached() const { return isReached_; }

 private:
  RecordedCall call_;
  Fate fate_;
  CallNames names_;
  bool isReached_ = false;
};

}  // namespace rehearse
