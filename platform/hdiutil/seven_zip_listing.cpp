#include <algorithm>
#include <charconv>
#include <chrono>
#include <map>
#include <optional>
#include <set>
#include <string_view>
#include <utility>

#include "platform/hdiutil/image_error.hpp"
#include "platform/hdiutil/seven_zip.hpp"

namespace platform::hdiutil {
namespace {

constexpr std::string_view kSeparator = "----------";
constexpr std::size_t kMostEntries = 1'000'000;

using Fields = std::map<std::string, std::string, std::less<>>;

[[noreturn]] void misunderstood() {
  throw ImageError("the list of its volume's entries cannot be read");
}

std::string_view nextLine(std::string_view& rest) {
  const auto end = rest.find('\n');
  const std::string_view line = rest.substr(0, end);
  rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  return line;
}

template <typename Number>
Number number(std::string_view digits) {
  Number value{};
  const auto [end, failure] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (failure != std::errc() || end != digits.data() + digits.size())
    misunderstood();
  return value;
}

/// "2022-01-14 07:19:41" in UTC, with or without a fraction of up to nine digits.
EntryMetadata::Time parseTime(std::string_view text) {
  if (text.size() < 19 || text[4] != '-' || text[7] != '-' || text[10] != ' ' || text[13] != ':' ||
      text[16] != ':')
    misunderstood();
  const std::chrono::year_month_day date{std::chrono::year(number<int>(text.substr(0, 4))),
                                         std::chrono::month(number<unsigned>(text.substr(5, 2))),
                                         std::chrono::day(number<unsigned>(text.substr(8, 2)))};
  const auto seconds = std::chrono::hours(number<int>(text.substr(11, 2))) +
                       std::chrono::minutes(number<int>(text.substr(14, 2))) +
                       std::chrono::seconds(number<int>(text.substr(17, 2)));
  EntryMetadata::Time time{};
  time.seconds = (std::chrono::sys_days(date).time_since_epoch() + seconds) / std::chrono::seconds(1);
  if (text.size() > 20 && text.size() <= 29) {
    std::string fraction(text.substr(20));
    fraction.resize(9, '0');
    time.nanoseconds = number<std::int64_t>(fraction);
  }
  return time;
}

/// "-rwsr-xr-x": the kind of entry and three groups of three letters.
std::uint16_t parsePermissions(std::string_view mode) {
  if (mode.size() < 10)
    misunderstood();
  unsigned permissions = 0;
  for (unsigned place = 0; place < 9; ++place) {
    const char letter = mode[place + 1];
    // The last letter of a group may be one of these instead of "x", in upper case when "x" is not set.
    const bool isSpecial = place % 3 == 2 && std::string_view("sStT").find(letter) != std::string_view::npos;
    if (letter != '-' && letter != 'S' && letter != 'T')
      permissions |= 0400U >> place;
    if (isSpecial)
      permissions |= 04000U >> (place / 3);
  }
  return static_cast<std::uint16_t>(permissions);
}

std::string_view field(const Fields& fields, std::string_view key) {
  const auto found = fields.find(key);
  return found == fields.end() ? std::string_view() : std::string_view(found->second);
}

ListedEntry makeEntry(const Fields& fields) {
  ListedEntry entry;
  entry.path = field(fields, "Path");
  const std::string_view mode = field(fields, "Mode");
  const std::string_view folder = field(fields, "Folder");
  entry.metadata = {false, 0777, parseTime(field(fields, "Modified"))};
  if (!mode.empty())
    entry.metadata.permissions = parsePermissions(mode);
  const char kind = mode.empty() ? (folder == "+" ? 'd' : '-') : mode.front();
  if (kind == 'd') {
    entry.kind = ListedEntry::Kind::folder;
    return entry;
  }
  entry.size = number<std::uint64_t>(field(fields, "Size"));
  if (kind == 'l') {
    entry.kind = ListedEntry::Kind::symbolicLink;
    entry.metadata.isSymbolicLink = true;
    entry.linkText = field(fields, "Symbolic Link");
    // The stored text may end with a null character.
    if (entry.linkText.empty() ||
        (entry.size != entry.linkText.size() && entry.size != entry.linkText.size() + 1))
      misunderstood();
  } else if (kind != '-') {
    throw UnsupportedImageError("an entry in its volume that is neither a file nor a folder nor a link");
  }
  return entry;
}

bool isFolderOfVolume(const VolumeListing& listing, std::string_view path) {
  return std::any_of(listing.volumes.begin(), listing.volumes.end(),
                     [&](const auto& volume) { return !volume.folder.empty() && volume.folder == path; });
}

void add(VolumeListing& listing, const Fields& fields) {
  // The folder of a volume has only a path.
  if (fields.empty() || isFolderOfVolume(listing, field(fields, "Path")))
    return;
  ListedEntry entry = makeEntry(fields);
  const std::vector<std::string> names = namesInPath(entry.path);
  const bool hasFolder = !listing.volumes.front().folder.empty();
  if (hasFolder && std::none_of(listing.volumes.begin(), listing.volumes.end(),
                                [&](const auto& volume) { return volume.folder == names.front(); }))
    misunderstood();
  const std::string& inRoot = names[hasFolder ? 1 : 0];
  if (std::find(kHousekeepingNames.begin(), kHousekeepingNames.end(), inRoot) != kHousekeepingNames.end())
    return;
  if (listing.entries.size() == kMostEntries)
    throw ImageLimitError("its volume has more than " + std::to_string(kMostEntries) + " entries");
  listing.entries.push_back(std::move(entry));
}

/// Throws unless every entry is in the root or in a folder that is listed too.
void requireFolders(const VolumeListing& listing) {
  std::set<std::string_view> folders;
  for (const ListedVolume& volume : listing.volumes)
    folders.insert(volume.folder);
  for (const ListedEntry& entry : listing.entries)
    if (entry.kind == ListedEntry::Kind::folder)
      folders.insert(entry.path);
  for (const ListedEntry& entry : listing.entries) {
    const auto slash = entry.path.rfind('/');
    if (slash != std::string::npos && !folders.contains(std::string_view(entry.path).substr(0, slash)))
      misunderstood();
  }
}

void startVolume(VolumeListing& listing, std::string_view number) {
  const bool isFirst = listing.volumes.empty();
  if ((!isFirst && listing.volumes.back().folder.empty()) ||
      number != std::to_string(listing.volumes.size() + 1))
    misunderstood();
  listing.volumes.push_back({.name = {}, .identifier = {}, .folder = "Volume" + std::string(number)});
}

void nameVolume(VolumeListing& listing, std::string_view name) {
  if (listing.volumes.empty())
    listing.volumes.emplace_back();
  ListedVolume& volume = listing.volumes.back();
  if (std::exchange(volume.isNamed, true))
    misunderstood();
  volume.name = name;
}

void readHeader(VolumeListing& listing, std::string_view& rest) {
  const auto valueOf = [](std::string_view line, std::string_view key) {
    return line.starts_with(key) ? std::optional(line.substr(key.size())) : std::nullopt;
  };
  while (!rest.empty()) {
    const std::string_view line = nextLine(rest);
    if (line == kSeparator) {
      if (listing.volumes.empty())
        listing.volumes.emplace_back();
      return;
    }
    if (const auto number = valueOf(line, "Volume: "))
      startVolume(listing, *number);
    for (const std::string_view key : {"volume_name: ", "Label = "})
      if (const auto name = valueOf(line, key))
        nameVolume(listing, *name);
    if (const auto identifier = valueOf(line, "vol_uuid: "); identifier && !listing.volumes.empty())
      listing.volumes.back().identifier = *identifier;
  }
  misunderstood();
}

}  // namespace

VolumeListing parseListing(const std::string& text) {
  VolumeListing listing;
  std::string_view rest = text;
  readHeader(listing, rest);
  Fields fields;
  while (!rest.empty()) {
    const std::string_view line = nextLine(rest);
    if (line.empty()) {
      add(listing, fields);
      fields.clear();
      continue;
    }
    const auto equals = line.find(" =");
    if (equals == std::string_view::npos)
      misunderstood();
    const std::string_view value = line.substr(equals + 2);
    // A line break in a name produces an unexpected line or a repeated one.
    if ((!value.empty() && value.front() != ' ') || (fields.empty() && line.substr(0, equals) != "Path") ||
        !fields.emplace(line.substr(0, equals), value.empty() ? value : value.substr(1)).second)
      misunderstood();
  }
  add(listing, fields);
  requireFolders(listing);
  return listing;
}

}  // namespace platform::hdiutil
