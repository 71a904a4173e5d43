#include "rehearse/start/bundle_tree.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <deque>

#include "platform/foundation/error.hpp"
#include "platform/foundation/text.hpp"

namespace rehearse {
namespace {

using platform::Directory;
using platform::ItemKind;
using platform::URL;

/// As many as a Mac follows in one path.
constexpr unsigned kMostLinks = 32;

std::deque<std::string> components(std::string_view path) {
  std::deque<std::string> parts;
  while (!path.empty()) {
    const std::string_view part = path.substr(0, path.find('/'));
    if (!part.empty() && part != ".")
      parts.emplace_back(part);
    path.remove_prefix(std::min(path.size(), part.size() + 1));
  }
  return parts;
}

std::string below(const std::string& directory, const std::string& name) {
  return directory.empty() ? name : directory + "/" + name;
}

std::string parentOf(const std::string& path) {
  const auto slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

}  // namespace

BundleTree::BundleTree(const std::filesystem::path& bundle) {
  const Directory root = Directory::open(URL::fileURLWithPath(bundle.native()), Directory::Links::followed);
  const auto resolved = platform::resolvingLinks(URL::fileURLWithPath(bundle.native()));
  if (!resolved)
    throw platform::SystemError(platform::quoted(bundle.native()) + " cannot be found", errno);
  root_ = resolved->path();
  const auto status = platform::statusOf(root.descriptor(), bundle.native());
  items_.emplace("", Item{.path = "",
                          .kind = ItemKind::directory,
                          .permissions = status.st_mode & 07777,
                          .size = 0,
                          .linkTarget = {}});
  read(root, {});
}

void BundleTree::read(const Directory& directory, const std::string& path) {
  for (const platform::ListedItem& entry : directory.entries()) {
    const auto status = directory.entry(entry.name).status();
    Item item{.path = below(path, entry.name),
              .kind = entry.kind,
              .permissions = status.st_mode & 07777,
              .size = entry.size,
              .linkTarget = entry.kind == ItemKind::link ? directory.linkTarget(entry.name) : std::string()};
    const std::string here = item.path;
    const auto [found, isNew] = items_.emplace(platform::caseFolded(here), std::move(item));
    // The contents of directories that collide do so as well, but one pair is enough to say it.
    if (!isNew)
      collisions_.emplace_back(found->second.path, here);
    else if (entry.kind == ItemKind::directory)
      read(directory.subdirectory(entry.name), here);
  }
}

std::vector<const BundleTree::Item*> BundleTree::items() const {
  std::vector<const Item*> all;
  for (const auto& [key, item] : items_)
    all.push_back(&item);
  std::ranges::sort(all, {}, &Item::path);
  return all;
}

const BundleTree::Item* BundleTree::find(const std::string& path) const {
  const auto found = items_.find(platform::caseFolded(path));
  return found == items_.end() ? nullptr : &found->second;
}

BundleTree::Place BundleTree::resolve(std::string_view path) const {
  std::deque<std::string> rest = components(path);
  const Item* here = find({});
  unsigned links = 0;
  while (!rest.empty()) {
    const std::string name = std::move(rest.front());
    rest.pop_front();
    if (here->kind != ItemKind::directory)
      return {};
    if (name == "..") {
      if (here->path.empty())
        return {.item = nullptr, .leavesBundle = true};
      here = find(parentOf(here->path));
      continue;
    }
    const Item* next = find(below(here->path, name));
    if (next == nullptr || (next->kind == ItemKind::link && ++links > kMostLinks))
      return {};
    if (next->kind != ItemKind::link) {
      here = next;
      continue;
    }
    if (next->linkTarget.starts_with('/'))
      return {.item = nullptr, .leavesBundle = true};
    std::deque<std::string> target = components(next->linkTarget);
    rest.insert(rest.begin(), target.begin(), target.end());
  }
  return {.item = here, .leavesBundle = false};
}

}  // namespace rehearse
