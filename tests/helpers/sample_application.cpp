#include "tests/helpers/sample_application.hpp"

#include <stdexcept>
#include <utility>

#include "platform/formats/property_list.hpp"
#include "tests/helpers/files.hpp"
#include "tests/helpers/program.hpp"
#include "tools/sign_bundle/mach_o_maker.hpp"

namespace fs = std::filesystem;

namespace test {
namespace {

using sign_bundle::Architecture;
using sign_bundle::MachOKind;

const std::vector<Architecture> kBoth = {Architecture::x86_64, Architecture::arm64};

void makeExecutable(const fs::path& path) {
  fs::permissions(path, fs::perms(0755));
}

void writeMachO(const fs::path& path, MachOKind kind,
                const std::vector<Architecture>& architectures = kBoth) {
  writeFile(path, sign_bundle::makeMachO(
                      {.architectures = architectures, .kind = kind, .text = path.filename().native()}));
  makeExecutable(path);
}

void writeScript(const fs::path& path, std::string_view text) {
  writeFile(path, text);
  makeExecutable(path);
}

/// A bundle in the shape of an application.
void writeNestedBundle(const fs::path& bundle, const std::string& identifier) {
  const std::string executable = bundle.stem();
  writeInfoPlist(bundle / "Contents/Info.plist", identifier, executable, "1.0", "1");
  writeMachO(bundle / "Contents/MacOS" / executable, MachOKind::executable);
  writeFile(bundle / "Contents/Resources/en.lproj/Localizable.strings", "name = " + executable + ";\n");
}

void writeFramework(const fs::path& framework, const std::string& identifier) {
  const std::string name = framework.stem();
  const fs::path version = framework / "Versions/A";
  writeInfoPlist(version / "Resources/Info.plist", identifier, name, "1.0", "1");
  writeFile(version / "Resources/de.lproj/Localizable.strings", "\"key\" = \"Wert\";\n");
  writeFile(version / "Headers" / (name + ".h"), "#pragma once\n");
  writeMachO(version / name, MachOKind::dynamicLibrary);
  fs::create_symlink("A", framework / "Versions/Current");
  for (const std::string& item : {name, std::string("Resources"), std::string("Headers")})
    fs::create_symlink("Versions/Current/" + item, framework / item);
}

void writeFrameworks(const fs::path& frameworks, const std::string& identifier) {
  writeFramework(frameworks / "Sample.framework", identifier + ".framework");
  const fs::path version = frameworks / "Sample.framework/Versions/A";
  writeFramework(version / "Frameworks/Inner.framework", identifier + ".framework.inner");
  fs::create_symlink("Versions/Current/Frameworks", frameworks / "Sample.framework/Frameworks");
  writeMachO(version / "sample-agent", MachOKind::executable, {Architecture::arm64});
  writeMachO(frameworks / "libsample.1.dylib", MachOKind::dynamicLibrary);
  fs::create_symlink("libsample.1.dylib", frameworks / "libsample.dylib");
  writeFile(frameworks / "Sample.framework.dSYM/Contents/Info.plist", "debugging symbols");
  writeFile(frameworks / "Sample.framework.dSYM/Contents/Resources/DWARF/Sample", "more of them");
}

void writeResources(const fs::path& resources) {
  writeFile(resources / "icon.icns", std::string("icns\0\0\0\x10", 8) + std::string(70'000, 'i'));
  writeFile(resources /
                "Lies mich, bitte \xE2\x80\x93 Gr\xC3\xBC\xC3\x9F"
                "e.txt",
            "Hallo\n");
  writeFile(resources / "empty", "");
  writeFile(resources / "deep/deeper/deepest/file.txt", "far down\n");
  writeFile(resources / "Base.lproj/Main.nib", "nib");
  writeFile(resources / "en.lproj/Localizable.strings", "\"key\" = \"value\";\n");
  writeFile(resources / "en.lproj/locversion.plist", "omitted");
  writeFile(resources / "pt-BR.lproj/Help/index.html", "<html></html>\n");
  writeFile(resources / ".DS_Store", "omitted");
  writeScript(resources / "tool.sh", "#!/bin/sh\nexit 0\n");
  fs::create_symlink("deep/deeper/deepest/file.txt", resources / "link to file.txt");
  fs::create_directory_symlink("deep", resources / "link to directory");
  fs::create_symlink("/etc/passwd", resources / "link to a place outside");
}

void writeMainExecutable(const fs::path& path, const SampleOptions& options) {
  if (options.executable == SampleExecutable::script)
    writeScript(path, options.script);
  else
    writeMachO(path, MachOKind::executable);
}

}  // namespace

void runSignBundle(const std::vector<std::string>& arguments) {
  const Outcome outcome = runProgram(buildPrefix() / "tools/sign_bundle/sign_bundle", arguments);
  if (outcome.exitStatus != 0)
    throw std::runtime_error("sign_bundle: " + outcome.error);
}

SampleChain::SampleChain(fs::path directory, const std::string& team, const std::vector<std::string>& options)
    : directory_(std::move(directory)) {
  std::vector<std::string> arguments = {"make-chain", directory_.native(), "--team", team, "--keys", "ec"};
  arguments.insert(arguments.end(), options.begin(), options.end());
  runSignBundle(arguments);
}

void SampleChain::sign(const fs::path& code, const std::vector<std::string>& options) const {
  std::vector<std::string> arguments = {"sign", code.native(), "--chain", directory_.native()};
  arguments.insert(arguments.end(), options.begin(), options.end());
  runSignBundle(arguments);
}

fs::path makePlainApplication(const fs::path& parent, const SampleOptions& options) {
  fs::path application = parent / (options.name + ".app");
  const fs::path contents = application / "Contents";
  writeInfoPlist(contents / "Info.plist", options.identifier, options.name, options.shortVersion,
                 options.version);
  writeMainExecutable(contents / "MacOS" / options.name, options);
  writeFile(contents / "Resources/text.txt", "text\n");
  return application;
}

fs::path makeSampleApplication(const fs::path& parent, const SampleOptions& options) {
  fs::path application = makePlainApplication(parent, options);
  const fs::path contents = application / "Contents";
  const std::string& identifier = options.identifier;
  writeFile(contents / "PkgInfo", "APPL????");
  writeFile(contents / "version.plist", "<plist/>");
  writeFile(contents / "embedded.provisionprofile", "profile");
  writeFile(contents / "CodeResources", "ticket");
  writeResources(contents / "Resources");
  writeFrameworks(contents / "Frameworks", identifier);
  writeMachO(contents / "MacOS/sample-helper", MachOKind::executable);
  writeMachO(contents / "PlugIns/Sample.bundle/Contents/MacOS/Sample", MachOKind::loadableBundle);
  writeInfoPlist(contents / "PlugIns/Sample.bundle/Contents/Info.plist", identifier + ".plugin", "Sample",
                 "1.0", "1");
  writeMachO(contents / "PlugIns/Object.bundle/Contents/MacOS/Object", MachOKind::objectFile,
             {Architecture::x86_64});
  writeInfoPlist(contents / "PlugIns/Object.bundle/Contents/Info.plist", identifier + ".object", "Object",
                 "1.0", "1");
  writeInfoPlist(contents / "PlugIns/Icons.bundle/Contents/Info.plist", identifier + ".icons", "", "1.0",
                 "1");
  writeFile(contents / "PlugIns/Icons.bundle/Contents/Resources/icon.png", "icon");
  writeNestedBundle(contents / "PlugIns/Share.appex", identifier + ".share");
  writeNestedBundle(contents / "XPCServices/com.example.sample.service.xpc", identifier + ".service");
  writeNestedBundle(contents / "Library/LoginItems/Agent.app", identifier + ".agent");
  writeNestedBundle(contents / "Library/SystemExtensions/com.example.sample.driver.dext",
                    identifier + ".driver");
  return application;
}

std::string startingScript(const std::string& version) {
  return "#!/bin/sh\nbundle=${0%/Contents/MacOS/*}\necho " + version + " >> \"${bundle%/*/*}/starts\"\n";
}

void installUpdater(const fs::path& prefix, const std::vector<fs::path>& roots) {
  for (const char* program : {"bin/QuorinOstrevalUpdater", "libexec/quorin/hdiutil", "libexec/quorin/ditto",
                              "libexec/quorin/open"}) {
    fs::create_directories((prefix / program).parent_path());
    fs::copy_file(buildPrefix() / program, prefix / program);
  }
  const fs::path anchors = prefix / "share/quorin/anchors";
  fs::create_directories(anchors);
  for (const fs::path& root : roots)
    fs::copy_file(root, anchors / (root.parent_path().filename().native() + ".pem"));
}

void writeInfoPlist(const fs::path& path, std::string_view identifier, std::string_view executable,
                    std::string_view shortVersion, std::string_view version) {
  platform::PropertyList::Dictionary list{{"CFBundleIdentifier", std::string(identifier)},
                                          {"CFBundleName", std::string(executable)},
                                          {"CFBundlePackageType", "APPL"},
                                          {"CFBundleShortVersionString", std::string(shortVersion)},
                                          {"CFBundleVersion", std::string(version)}};
  if (!executable.empty())
    list.emplace("CFBundleExecutable", std::string(executable));
  writeFile(path, platform::NSPropertyListSerialization::dataWithPropertyList(
                      platform::PropertyList(std::move(list)))
                      .bytes());
}

}  // namespace test
