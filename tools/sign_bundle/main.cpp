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
#include "tools/sign_bundle/make_mach_o.hpp"

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
    [--bind both|list|digests|none] [--defect DEFECT]
    DEFECT: two-signers, carried-content, without-signed-attributes, weak-digest, other-content-type,
    other-time-stamp, unsorted-digests

sign_bundle make-mach-o FILE --arch ARCHITECTURES [--kind executable|library|bundle] [--text TEXT] [--least-size BYTES]
    [--wide]
    ARCHITECTURES: one or several, with commas between them, of x86_64, arm64, i386, ppc; "both" is x86_64,arm64
)";

platform::URL location(const std::string& path) {
  return platform::URL::fileURLWithPath(path);
}

void runMakeChain(const std::vector<std::string>& words) {
  const Arguments arguments(words, {}, {"--team", "--name", "--keys", "--leaf", "--defect"});
  ChainOptions options{.team = arguments.requiredValue("--team")};
  options.name = arguments.value("--name").value_or(options.name);
  options.keys = arguments.choice<KeyKind>("--keys", {{"rsa", KeyKind::rsa}, {"ec", KeyKind::ellipticCurve}},
                                           options.keys);
  options.leaf = arguments.choice<LeafKind>("--leaf",
                                            {{"developer-id", LeafKind::developerID},
                                             {"kernel-extensions", LeafKind::kernelExtensions},
                                             {"store", LeafKind::store},
                                             {"development", LeafKind::development}},
                                            options.leaf);
  options.defect = arguments.choice<ChainDefect>(
      "--defect",
      {{"intermediate-without-extension", ChainDefect::intermediateWithoutExtension},
       {"leaf-without-extension", ChainDefect::leafWithoutExtension},
       {"leaf-without-code-signing-usage", ChainDefect::leafWithoutCodeSigningUsage},
       {"leaf-without-usage", ChainDefect::leafWithoutUsage},
       {"leaf-key-not-for-signing", ChainDefect::leafKeyNotForSigning},
       {"leaf-with-weak-key", ChainDefect::leafWithWeakKey},
       {"leaf-with-two-teams", ChainDefect::leafWithTwoTeams},
       {"unknown-critical-extension-in-leaf", ChainDefect::unknownCriticalExtensionInLeaf},
       {"unknown-critical-extension-in-intermediate", ChainDefect::unknownCriticalExtensionInIntermediate},
       {"self-signed-leaf", ChainDefect::selfSignedLeaf},
       {"leaf-as-issuer", ChainDefect::leafAsIssuer},
       {"path-too-long", ChainDefect::pathTooLong},
       {"without-intermediate", ChainDefect::withoutIntermediate},
       {"expired", ChainDefect::expired}},
      options.defect);
  makeChain(location(arguments.operand("directory")), options);
}

void runSign(const std::vector<std::string>& words) {
  const Arguments arguments(words,
                            {"--ad-hoc", "--hardened-runtime", "--time-stamp", "--without-requirements"},
                            {"--chain", "--identifier", "--team", "--hash", "--sealed-hash", "--page-size",
                             "--entitlements", "--later-component", "--bind", "--defect"});
  const platform::URL code = location(arguments.operand("bundle or Mach-O file"));
  if (arguments.has("--ad-hoc") == arguments.has("--chain"))
    throw UsageError("Either --chain or --ad-hoc is needed.");
  std::optional<SigningIdentity> identity;
  if (const auto chain = arguments.value("--chain"))
    identity = SigningIdentity::read(location(*chain));

  using Digests = std::vector<DigestAlgorithm>;
  SigningOptions options;
  options.signature.digests =
      arguments.choice<Digests>("--hash",
                                {{"sha256", {DigestAlgorithm::sha256}},
                                 {"sha1+sha256", {DigestAlgorithm::sha1, DigestAlgorithm::sha256}},
                                 {"sha384", {DigestAlgorithm::sha384}}},
                                options.signature.digests);
  options.sealedDigests = arguments.choice<SealedDigests>("--sealed-hash",
                                                          {{"sha256", SealedDigests::sha256},
                                                           {"sha1+sha256", SealedDigests::sha1AndSha256},
                                                           {"sha1", SealedDigests::sha1}},
                                                          options.sealedDigests);
  if (arguments.has("--page-size"))
    options.pageSizeExponent =
        arguments.choice<unsigned>("--page-size", {{"unlimited", 0}, {"4096", 12}, {"16384", 14}}, 0);
  MessageOptions& message = options.signature.message;
  message.timeStamp = arguments.has("--time-stamp") ? TimeStamp::yes : TimeStamp::no;
  message.binding = arguments.choice<DirectoryBinding>("--bind",
                                                       {{"both", DirectoryBinding::both},
                                                        {"list", DirectoryBinding::list},
                                                        {"digests", DirectoryBinding::digests},
                                                        {"none", DirectoryBinding::none}},
                                                       message.binding);
  message.defect = arguments.choice<SignatureDefect>(
      "--defect",
      {{"two-signers", SignatureDefect::twoSigners},
       {"carried-content", SignatureDefect::carriedContent},
       {"without-signed-attributes", SignatureDefect::withoutSignedAttributes},
       {"weak-digest", SignatureDefect::weakDigest},
       {"other-content-type", SignatureDefect::otherContentType},
       {"other-time-stamp", SignatureDefect::otherTimeStamp},
       {"unsorted-digests", SignatureDefect::unsortedDigests}},
      message.defect);
  options.team = arguments.value("--team");
  options.hardenedRuntime = arguments.has("--hardened-runtime");
  options.withoutRequirements = arguments.has("--without-requirements");
  if (const auto file = arguments.value("--entitlements"))
    options.entitlements = platform::Data::contentsOf(location(*file));
  if (const auto file = arguments.value("--later-component"))
    options.laterComponent = platform::Data::contentsOf(location(*file));
  CodeSigner(identity ? &*identity : nullptr, options).sign(code, arguments.value("--identifier"));
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
      throw UsageError(platform::quoted(name) + " is no architecture.");
    architectures.push_back(found->second);
  }
  return architectures;
}

std::size_t byteCountOf(const std::string& text) {
  std::size_t count = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
  if (error != std::errc() || end != text.data() + text.size() || count > kLargestMachO)
    throw UsageError(platform::quoted(text) + " is no usable number of bytes.");
  return count;
}

void runMakeMachO(const std::vector<std::string>& words) {
  const Arguments arguments(words, {"--wide"}, {"--arch", "--kind", "--text", "--least-size"});
  MachOOptions options{.architectures = architecturesOf(arguments.requiredValue("--arch"))};
  options.kind = arguments.choice<MachOKind>("--kind",
                                             {{"executable", MachOKind::executable},
                                              {"library", MachOKind::dynamicLibrary},
                                              {"bundle", MachOKind::loadableBundle}},
                                             options.kind);
  options.text = arguments.value("--text").value_or(options.text);
  options.leastTextSize = byteCountOf(arguments.value("--least-size").value_or("0"));
  options.wideUniversal = arguments.has("--wide");
  const std::string& path = arguments.operand("file");
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
