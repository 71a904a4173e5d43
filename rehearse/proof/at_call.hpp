#pragma once

#include <string>
#include <utility>
#include <vector>

#include "rehearse/proof/call_names.hpp"
#include "rehearse/proof/recording.hpp"
#include "rehearse/proof/system_calls.hpp"
#include "rehearse/proof/tracer.hpp"

namespace rehearse {

/// Decides the fate of one call.
class AtCall {
 public:
  /// The call is found by its name among all calls, or among the changes of files.
  enum class Among { calls, changes };

  AtCall(const Material& material, RecordedCall call, Fate fate, Among among = Among::calls)
      : call_(std::move(call)),
        name_(among == Among::calls ? call_.name : call_.change),
        fate_(fate),
        among_(among),
        names_(material.updater.filename()) {}

  Watcher watcher() {
    return {.before =
                [this](const SystemCall& call) {
                  if (isReached_ || (among_ == Among::changes && !changesFiles(call)) ||
                      names_.next(call) != name_)
                    return Fate{};
                  isReached_ = true;
                  return fate_;
                },
            .calls = std::vector<long>{call_.call.number}};
  }

  bool isReached() const { return isReached_; }

 private:
  RecordedCall call_;
  std::string name_;
  Fate fate_;
  Among among_;
  CallNames names_;
  bool isReached_ = false;
};

}  // namespace rehearse
