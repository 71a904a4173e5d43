// Writes reports of made rehearsals, for scripts/check_report: write_sample_reports DIRECTORY

#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "rehearse/record/rehearsal_json.hpp"
#include "rehearse/report/html_report.hpp"
#include "rehearse/report/text_report.hpp"
#include "tests/rehearse/record/sample_rehearsal.hpp"

namespace {

void write(const std::filesystem::path& file, const std::string& text) {
  std::ofstream stream(file, std::ios::binary);
  stream << text;
  if (!stream.flush())
    throw std::runtime_error(file.string() + " could not be written.");
}

void writeReports(const std::filesystem::path& directory, const std::string& name,
                  const rehearse::Rehearsal& rehearsal) {
  write(directory / (name + ".html"), rehearse::htmlReport(rehearsal));
  write(directory / (name + ".json"), rehearse::json(rehearsal));
  write(directory / (name + ".txt"), rehearse::textReport(rehearsal));
}

}  // namespace

int main(int count, char** arguments) try {
  if (count != 2) {
    std::cerr << "Usage: write_sample_reports DIRECTORY\n";
    return 2;
  }
  writeReports(arguments[1], "good", test::goodRehearsal());
  writeReports(arguments[1], "troubled", test::troubledRehearsal());
  return 0;
} catch (const std::exception& error) {
  std::cerr << "write_sample_reports: " << error.what() << '\n';
  return 1;
}
