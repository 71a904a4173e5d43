#include "tests/prove/sample_material.hpp"

#include <memory>
#include <stdexcept>
#include <string>

#include "tests/helpers/files.hpp"
#include "tests/helpers/program.hpp"
#include "tests/helpers/sample_application.hpp"
#include "updater/diskimage/file_digest.hpp"

namespace fs = std::filesystem;

namespace prove {
namespace {

constexpr const char* kIdentifier = "com.example.quorin-ostreval";

fs::path makeApplication(const fs::path& folder, const test::SampleChain& chain, const std::string& version,
                         const std::string& script) {
  test::SampleOptions options{.name = "Quorin Ostreval", .identifier = kIdentifier, .shortVersion = version};
  options.version = version;
  options.script = script;
  fs::create_directories(folder);
  fs::path application = test::makePlainApplication(folder, options);
  test::writeFile(application / "Contents/Resources/en.lproj/Localizable.strings", "version = " + version);
  fs::create_symlink("text.txt", application / "Contents/Resources/link");
  chain.sign(application);
  return application;
}

rehearse::Offer makeOffer(const fs::path& folder, const test::SampleChain& chain, const std::string& version,
                          const std::string& script) {
  const fs::path application = makeApplication(folder, chain, version, script);
  fs::path image = folder;
  image += ".dmg";
  const test::Outcome made =
      test::runProgram(test::buildPrefix() / "bin/make_disk_image",
                       {application.parent_path().native(), "Quorin Ostreval", image.native()});
  if (made.exitStatus != 0)
    throw std::runtime_error("make_disk_image: " + made.error);
  return {.image = image,
          .digest = QuorinOstrevalUpdater::sha256(platform::URL::fileURLWithPath(image.native())),
          .application = {version, version, test::inventory(application)},
          .sealedFile = rehearse::sealedFileOf(application)};
}

}  // namespace

rehearse::Material makeSampleMaterial(const fs::path& directory) {
  const fs::path prefix = directory / "prefix";
  const test::SampleChain chain(directory / "chain");
  test::installUpdater(prefix, {chain.root()});
  rehearse::Material material;
  material.updater = prefix / "bin/QuorinOstrevalUpdater";
  material.identifier = kIdentifier;
  material.team = test::SampleChain::kTeam;
  material.oldBundle = makeApplication(directory / "1.0", chain, "1.0", test::startingScript("1.0"));
  material.bundleName = material.oldBundle.filename();
  material.old = {"1.0", "1.0", test::inventory(material.oldBundle)};
  material.starts = std::make_shared<rehearse::WrittenStarts>();
  material.update = makeOffer(directory / "2.0", chain, "2.0", test::startingScript("2.0"));
  material.next = makeOffer(directory / "3.0", chain, "3.0", test::startingScript("3.0"));
  material.broken = makeOffer(directory / "broken", chain, "2.0", "#!/no/such/interpreter\n");
  return material;
}

}  // namespace prove
