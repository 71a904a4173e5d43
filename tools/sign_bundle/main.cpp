#include <charconv>
#include <exception>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "platform/files/url.hpp"
#include "platform/foundation/error.hpp"
#include "tools/sign_bundle/chain_maker.hpp"
#include "tools/sign_bundle/code_signer.hpp"
#include "tools/sign_bundle/command_line.hpp"
#include "tools/sign_bundle/mach_o_maker.hpp"

namespace sign_bundle {
namespace {

constexpr int kFailed = 1;
constexpr int kUsage = 64;
constexpr std::size_t kLargestMachO = std::size_t{1} << 31U;

constexpr const char* kHelp =
    R"(Signs code for tests and demonstrations, in the format of Developer ID signatures.

sign_bundle make-chain DIRECTORY --team TEAM [--name NAME] [--keys rsa|ec]
    [--leaf developer-id|kernel-extensions|store|development] [--defect DEFECT]
    DEFECT: intermediate-without-extension, leaf-without-extension, leaf-without-code-signing-usage,
    leaf-without-usage, leaf-key-not-for-signing, leaf-with-weak-key, leaf-with-two-teams,
    unknown-critical-extension-in-leaf, unknown-critical-extension-in-intermediate, self-signed-leaf, leaf-as-issuer,
    path-too-long, without-intermediate, expired

sign_bundle sign BUNDLE-OR-MACH-O (--chain DIRECTORY | --ad-hoc) [--identifier IDENTIFIER] [--team TEAM]
    [--hash sha256|sha1+sha256|sha384] [--sealed-hash sha256|sha1+sha256|sha1] [--page-size BYTES]
    [--hardened-runtime] [--entitlements FILE] [--later-component FILE] [--time-stamp] [--without-requirements]
    [--defect DEFECT]
    DEFECT: two-signers, carried-content, without-signed-attributes, weak-digest, other-content-type,
    other-time-stamp, unsorted-digests

sign_bundle make-mach-o FILE --arch ARCHITECTURES [--kind executable|library|bundle] [--text TEXT] [--least-size BYTES]
    [--wide]
    ARCHITECTURES: a comma-separated list of x86_64, arm64, i386, ppc; "both" is x86_64,arm64
)";

platform::URL location(const std::string& path) {
  return platform::URL::fileURLWithPath(path);
}

/// An option whose value is a file to read.
Option content(std::string_view name, std::optional<platform::Data>& field) {
  return {name, [&field](const std::string& path) { field = platform::Data::contentsOf(location(path)); }};
}

void runMakeChain(const std::vector<std::string>& words) {
  using enum ChainDefect;
  ChainOptions options;
  const std::string directory = parseCommandLine(
      words, "directory",
      {text("--team", options.team), text("--name", options.name),
       choice("--keys", options.keys, {{"rsa", KeyKind::rsa}, {"ec", KeyKind::ellipticCurve}}),
       choice("--leaf", options.leaf,
              {{"developer-id", LeafKind::developerID},
               {"kernel-extensions", LeafKind::kernelExtensions},
               {"store", LeafKind::store},
               {"development", LeafKind::development}}),
       choice("--defect", options.defect,
              {{"intermediate-without-extension", intermediateWithoutExtension},
               {"leaf-without-extension", leafWithoutExtension},
               {"leaf-without-code-signing-usage", leafWithoutCodeSigningUsage},
               {"leaf-without-usage", leafWithoutUsage},
               {"leaf-key-not-for-signing", leafKeyNotForSigning},
               {"leaf-with-weak-key", leafWithWeakKey},
               {"leaf-with-two-teams", leafWithTwoTeams},
               {"unknown-critical-extension-in-leaf", unknownCriticalExtensionInLeaf},
               {"unknown-critical-extension-in-intermediate", unknownCriticalExtensionInIntermediate},
               {"self-signed-leaf", selfSignedLeaf},
               {"leaf-as-issuer", leafAsIssuer},
               {"path-too-long", pathTooLong},
               {"without-intermediate", withoutIntermediate},
               {"expired", expired}})});
  require(!options.team.empty(), "--team");
  makeChain(location(directory), options);
}

/// The options of `sign` that change the content of the signature.
std::vector<Option> signingOptions(SigningOptions& options) {
  using enum SignatureDefect;
  using platform::DigestAlgorithm;
  MessageOptions& message = options.signature.message;
  return {text("--team", options.team),
          flag("--hardened-runtime", options.hardenedRuntime),
          flag("--without-requirements", options.withoutRequirements),
          flag("--time-stamp", message.timeStamp),
          content("--entitlements", options.entitlements),
          content("--later-component", options.laterComponent),
          choice("--hash", options.signature.digests,
                 {{"sha256", {DigestAlgorithm::sha256}},
                  {"sha1+sha256", {DigestAlgorithm::sha1, DigestAlgorithm::sha256}},
                  {"sha384", {DigestAlgorithm::sha384}}}),
          choice("--sealed-hash", options.sealedDigests,
                 {{"sha256", SealedDigests::sha256},
                  {"sha1+sha256", SealedDigests::sha1AndSha256},
                  {"sha1", SealedDigests::sha1}}),
          choice("--page-size", options.pageSizeExponent, {{"unlimited", 0}, {"4096", 12}, {"16384", 14}}),
          choice("--defect", message.defect,
                 {{"two-signers", twoSigners},
                  {"carried-content", carriedContent},
                  {"without-signed-attributes", withoutSignedAttributes},
                  {"weak-digest", weakDigest},
                  {"other-content-type", otherContentType},
                  {"other-time-stamp", otherTimeStamp},
                  {"unsorted-digests", unsortedDigests}})};
}

void runSign(const std::vector<std::string>& words) {
  SigningOptions options;
  bool adHoc = false;
  std::optional<std::string> chain;
  std::optional<std::string> identifier;
  std::vector<Option> known = signingOptions(options);
  known.insert(known.end(),
               {flag("--ad-hoc", adHoc), text("--chain", chain), text("--identifier", identifier)});
  const std::string code = parseCommandLine(words, "bundle or Mach-O file", known);
  if (adHoc == chain.has_value())
    throw UsageError("Either --chain or --ad-hoc is needed.");
  std::optional<SigningIdentity> identity;
  if (chain)
    identity = SigningIdentity::read(location(*chain));
  CodeSigner(identity ? &*identity : nullptr, options).sign(location(code), identifier);
}

std::vector<Architecture> architecturesOf(const std::string& text) {
  static const std::map<std::string_view, Architecture> kNames = {{"x86_64", Architecture::x86_64},
                                                                  {"arm64", Architecture::arm64},
                                                                  {"i386", Architecture::i386},
                                                                  {"ppc", Architecture::powerPc}};
  if (text == "both")
    return {Architecture::x86_64, Architecture::arm64};
  std::vector<Architecture> architectures;
  std::istringstream names(text);
  for (std::string name; std::getline(names, name, ',');) {
    const auto found = kNames.find(name);
    if (found == kNames.end())
      throw UsageError(platform::quoted(name) + " is not an architecture.");
    architectures.push_back(found->second);
  }
  return architectures;
}

std::size_t byteCountOf(const std::string& text) {
  std::size_t count = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
  if (error != std::errc() || end != text.data() + text.size() || count > kLargestMachO)
    throw UsageError(platform::quoted(text) + " is not a valid number of bytes.");
  return count;
}

void runMakeMachO(const std::vector<std::string>& words) {
  MachOOptions options{.architectures = {}};
  const std::string path = parseCommandLine(
      words, "file",
      {{"--arch", [&](const std::string& value) { options.architectures = architecturesOf(value); }},
       {"--least-size", [&](const std::string& value) { options.leastTextSize = byteCountOf(value); }},
       choice("--kind", options.kind,
              {{"executable", MachOKind::executable},
               {"library", MachOKind::dynamicLibrary},
               {"bundle", MachOKind::loadableBundle}}),
       text("--text", options.text),
       flag("--wide", options.wideUniversal)});
  require(!options.architectures.empty(), "--arch");
  platform::Data(makeMachO(options)).write(location(path), platform::DataWritingOptions::atomic);
  std::filesystem::permissions(path, std::filesystem::perms(0755));
}

int run(const std::vector<std::string>& words) {
  const std::map<std::string, std::function<void(const std::vector<std::string>&)>> commands = {
      {"make-chain", runMakeChain}, {"make-mach-o", runMakeMachO}, {"sign", runSign}};
  const auto command = words.empty() ? commands.end() : commands.find(words.front());
  if (command == commands.end()) {
    std::cerr << kHelp;
    return kUsage;
  }
  try {
    command->second({words.begin() + 1, words.end()});
    return 0;
  } catch (const UsageError& error) {
    std::cerr << "sign_bundle: " << error.what() << "\n\n" << kHelp;
    return kUsage;
  } catch (const std::exception& error) {
    std::cerr << "sign_bundle: " << error.what() << '\n';
    return kFailed;
  }
}

}  // namespace
}  // namespace sign_bundle

int main(int count, char** words) {
  return sign_bundle::run({words + (count > 0 ? 1 : 0), words + count});
}
