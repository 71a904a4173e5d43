// observed_kills_benchmark PREFIX DIRECTORY TURNS: compares the recording of an update with an undisturbed
// run of it. DIRECTORY contains the installed application in 1, the new one in 2, its image master.dmg and
// chain/root.pem.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "rehearse/files/private_prefix.hpp"
#include "rehearse/proof/recording.hpp"
#include "rehearse/proof/release_material.hpp"
#include "rehearse/proof/workers.hpp"
#include "updater/diskimage/file_digest.hpp"

namespace fs = std::filesystem;
using rehearse::Home;
using rehearse::Place;
using rehearse::Story;

namespace {

constexpr const char* kBundle = "Quorin Ostreval.app";

double secondsOf(const std::function<void()>& body) {
  const auto begin = std::chrono::steady_clock::now();
  body();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

double medianOf(std::vector<double> values) {
  std::ranges::sort(values);
  return values[values.size() / 2];
}

/// The time of an undisturbed run, without that of furnishing its home.
double secondsOfUpdate(const rehearse::Material& material, const rehearse::Workshop& workshop) {
  return std::stod(inPlace(workshop, [&](const Place& place) {
    Home home(material, Story::update, place.home, place.temporary);
    home.furnish();
    return std::to_string(secondsOf([&] {
      if (const rehearse::Ending ending = home.runUndisturbed(); ending.exitStatus != 0)
        throw std::runtime_error("the update failed: " + ending.error);
    }));
  }));
}

double secondsToFurnish(const rehearse::Material& material, const rehearse::Workshop& workshop) {
  return secondsOf([&] {
    inPlace(workshop, [&](const Place& place) {
      Home(material, Story::update, place.home, place.temporary).furnish();
      return std::string();
    });
  });
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const std::vector<std::string> words(argv, argv + argc);
    const fs::path directory = words.at(2);
    const fs::path image = directory / "master.dmg";
    const rehearse::PrivatePrefix prefix(directory / "prefix", {directory / "chain/root.pem"}, words.at(1));
    const rehearse::Material material = rehearse::materialOf(rehearse::ProvedRelease{
        .prefix = prefix.path(),
        .system = {14, 0},
        .installed = directory / "1" / kBundle,
        .installedVersion = "1",
        .installedBuild = "1",
        .identifier = "com.example.quorin-ostreval",
        .team = "QS7TEAM123",
        .offered = {.image = image,
                    .digest = QuorinOstrevalUpdater::sha256(platform::URL::fileURLWithPath(image.native())),
                    .version = "2",
                    .build = "2",
                    .application = directory / "2" / kBundle},
        .next = {}});
    const rehearse::Workshop workshop{directory / "workshop", 1, [&] { material.starts->settle(); }};
    fs::create_directory(workshop.directory);

    std::vector<double> undisturbed;
    std::vector<double> recorded;
    std::size_t changes = 0;
    for (int turn = std::stoi(words.at(3)); turn > 0; --turn) {
      undisturbed.push_back(secondsOfUpdate(material, workshop));
      const double furnishing = secondsToFurnish(material, workshop);
      recorded.push_back(secondsOf([&] {
                           const auto calls = record(material, Story::update, workshop);
                           changes = static_cast<std::size_t>(std::ranges::count_if(
                               calls, [](const auto& call) { return !call.after.empty(); }));
                         }) -
                         furnishing);
    }
    std::printf("undisturbed: %.2f s, recorded with what %zu kills leave: %.2f s\n", medianOf(undisturbed),
                changes, medianOf(recorded));
    std::printf("  ratio: %.2f (at most 3.0)\n", medianOf(recorded) / medianOf(undisturbed));
    return 0;
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
  }
}
