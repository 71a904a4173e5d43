#include "rehearse/proof/call_names.hpp"

#include "rehearse/proof/system_calls.hpp"

namespace rehearse {

std::string CallNames::next(const SystemCall& call) {
  const std::string process =
      call.program == updater_ && !call.byUpdater ? call.program + ", child" : call.program;
  const std::size_t turn = ++counts_[{process, call.number}];
  return process + ": " + kindOf(call.number).name + " " + std::to_string(turn);
}

}  // namespace rehearse
