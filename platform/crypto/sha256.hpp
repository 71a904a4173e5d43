#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

struct evp_md_ctx_st;

namespace platform {

using SHA256Digest = std::array<std::uint8_t, 32>;

/// The state of one SHA-256 computation (FIPS 180-4). Failures of the library are thrown as `Error`.
class SHA256 {
 public:
  SHA256();

  /// Adds bytes; any division of a message into parts gives the same digest.
  void update(std::string_view data);

  /// The digest of all that was added. Afterwards the state is of no use.
  SHA256Digest finalize();

 private:
  struct Free {
    void operator()(evp_md_ctx_st* context) const noexcept;
  };

  std::unique_ptr<evp_md_ctx_st, Free> context_;
};

/// Two lower-case hexadecimal digits for each byte, 64 in all.
std::string hexadecimal(const SHA256Digest& digest);

}  // namespace platform
