#include "tests/prove/material.hpp"

#include <stdexcept>

#include "tests/helpers/program.hpp"
#include "updater/diskimage/file_digest.hpp"

namespace fs = std::filesystem;

namespace prove {
Material::Material(const fs::path& directory)
    : updater(directory / "prefix/bin/QuorinOstrevalUpdater"),
      hastyUpdater(directory / "prefix/bin/HastyUpdater"),
      directory_(directory),
      chain_(directory / "chain") {
  const fs::path prefix = directory / "prefix";
  test::installUpdater(prefix, {chain_.root()});
  fs::copy_file(test::buildPrefix() / "tests/HastyUpdater", hastyUpdater);
  oldApplication = makeApplication("1.0", test::startingScript("1.0"));
  update = makeOffer("2.0", test::startingScript("2.0"));
  next = makeOffer("3.0", test::startingScript("3.0"));
  broken = makeOffer("2.0", "#!/no/such/interpreter\n");
}

fs::path Material::makeApplication(const std::string& version, const std::string& script) {
  test::SampleOptions options{.name = "Quorin Ostreval", .identifier = kIdentifier, .shortVersion = version};
  options.version = version;
  options.script = script;
  const fs::path folder = directory_ / version;
  fs::remove_all(folder);
  fs::create_directories(folder);
  fs::path application = test::makePlainApplication(folder, options);
  test::writeFile(application / "Contents/Resources/en.lproj/Localizable.strings", "version = " + version);
  fs::create_symlink("text.txt", application / "Contents/Resources/link");
  chain_.sign(application);
  return application;
}

Offer Material::makeOffer(const std::string& version, const std::string& script) {
  static int count = 0;
  const fs::path image = directory_ / ("offer-" + std::to_string(++count) + ".dmg");
  const fs::path application = makeApplication(version, script);
  const test::Outcome made =
      test::runProgram(test::buildPrefix() / "bin/make_disk_image",
                       {application.parent_path().native(), "Quorin Ostreval", image.native()});
  if (made.exitStatus != 0)
    throw std::runtime_error("make_disk_image: " + made.error);
  return {image, QuorinOstrevalUpdater::sha256(platform::URL::fileURLWithPath(image.native())), version,
          test::inventory(application)};
}

}  // namespace prove
