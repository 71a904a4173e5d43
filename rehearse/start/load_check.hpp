#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/security/mach_o_linkage.hpp"
#include "rehearse/start/bundle_tree.hpp"

namespace rehearse {

/// A library that cannot be loaded.
struct MissingLibrary {
  std::string loader;  ///< the path in the bundle of the first code that needs it
  std::string name;    ///< as the loader has it, such as "@rpath/libsample.dylib"
  std::string reason;  ///< a clause for each place in which it was looked for
};

/// Follows for one architecture what the dynamic loader does before a main executable runs: finds each
/// library that it and its libraries need. What belongs to the system is taken to be there, since a Mac has
/// most of its libraries in a cache and not as files.
class LoadCheck {
 public:
  /// `tree` must outlive this object.
  LoadCheck(const BundleTree& tree, std::string architecture)
      : tree_(tree), architecture_(std::move(architecture)) {}

  /// The libraries that cannot be loaded, each once; empty when the code at `executable`, a path in the
  /// bundle without links, can be. To be called once. Throws `platform::Error` when a file cannot be read.
  std::vector<MissingLibrary> missingLibraries(const std::string& executable, platform::MachOLinkage linkage);

  /// The libraries in the bundle that are loaded, as paths in it without links. After `missingLibraries`.
  std::vector<std::string> loadedLibraries() const;

 private:
  struct Image {
    std::string path;  ///< relative to the bundle
    std::size_t loader = 0;
    platform::MachOLinkage linkage;
  };
  /// A path to try. Inside the bundle it is relative to it, elsewhere absolute.
  struct Candidate {
    enum class Where { bundle, system, elsewhere };
    Where where = Where::elsewhere;
    std::string path;
  };

  Candidate candidate(const std::string& name, const Image& image) const;
  std::vector<Candidate> candidates(const std::string& name, std::size_t image) const;
  void loadLibraries(std::size_t image);
  std::optional<std::string> reasonNotToLoad(const std::string& name, std::size_t image);
  std::optional<std::string> reasonNotToLoad(const Candidate& candidate, std::size_t loader);
  std::optional<std::string> reasonNotToLoadFile(const std::string& path, std::size_t loader);
  bool isLoadedAs(const std::string& installName) const;

  const BundleTree& tree_;
  std::string architecture_;
  std::vector<Image> images_;  ///< in the order of loading, the executable first
  std::vector<MissingLibrary> missing_;
  std::size_t tries_ = 0;
};

/// True for a path at which the system itself has its libraries.
bool isSystemLibrary(const std::string& path);

}  // namespace rehearse
