// The manual page of a program of commands, TARVIO_MANUAL, beside its commands.
#ifndef TARVIO_TESTS_TARVIO_COMMANDS_MANUAL_H
#define TARVIO_TESTS_TARVIO_COMMANDS_MANUAL_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <string>

#include "commands/command_list.h"
#include "commands/help.h"
#include "program.h"
#include "support/files.h"

namespace client {

using Names = std::set<std::string>;

// The page without the marks of its fonts, and with plain hyphens.
inline std::string manual() {
  std::string text = tarvio_test::read_file(TARVIO_MANUAL);
  text = std::regex_replace(text, std::regex(R"(\\f[BIR])"), "");
  return std::regex_replace(text, std::regex(R"(\\-)"), "-");
}

inline void expect_usage_of_every_command() {
  for (const Command* command : all_commands()) {
    const std::string usage = std::string(kProgram.name) + " " + usage_of(*command) + " ";
    EXPECT_THAT(manual(), testing::HasSubstr("\n" + usage)) << "SYNOPSIS";
  }
}

inline void expect_entry_for_every_command() {
  const std::string text = manual();
  const std::string entries = text.substr(text.find(".SH COMMANDS"));
  for (const Command* command : all_commands()) {
    const std::regex entry("\n\\.TP\n(\\.B )?([a-z-]+, )?" + std::string(command->word) + "[ ,\n]");
    EXPECT_TRUE(std::regex_search(entries, entry)) << command->word;
  }
}

// And for no other.
inline void expect_entry_for_every_option() {
  const std::string text = manual();
  Names documented;
  const std::regex entry("\n\\.TP\n(?:\\.B[RI]? )?(?:-[a-zA-Z](?: \", \" |, ))?--([a-z-]+)");
  for (std::sregex_iterator at(text.begin(), text.end(), entry), end; at != end; ++at) {
    documented.insert((*at)[1]);
  }
  Names shown = {"version"};
  for (const Command* command : all_commands()) {
    for (const Option& option : options_of(command)) {
      if (option.help != nullptr) shown.insert(option.name);
    }
  }
  EXPECT_EQ(documented, shown);
}

inline void expect_entries_for_statuses(const std::set<int>& statuses) {
  const std::string text = manual();
  const std::string entries = text.substr(text.find(".SH EXIT STATUS"));
  std::set<int> documented;
  const std::regex entry("\n\\.TP\n\\.B ([0-9]+)\n");
  for (std::sregex_iterator at(entries.begin(), entries.end(), entry), end; at != end; ++at) {
    documented.insert(std::stoi((*at)[1]));
  }
  EXPECT_EQ(documented, statuses);
}

}  // namespace client

#endif
