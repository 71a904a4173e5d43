#pragma once

#include "platform/foundation/error.hpp"

namespace rehearse {

/// The system does not allow what a proof needs: private mounts, or to trace programs.
class ProofRefused : public platform::Error {
 public:
  using Error::Error;
};

}  // namespace rehearse
