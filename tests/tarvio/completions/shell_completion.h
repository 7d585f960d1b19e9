// What shells offer for the command line of a program. TARVIO_COMPLETIONS is the directory of its
// completions, TARVIO_COMPLETION_TESTS that of the programs that ask a shell.
#ifndef TARVIO_TESTS_TARVIO_COMPLETIONS_SHELL_COMPLETION_H
#define TARVIO_TESTS_TARVIO_COMPLETIONS_SHELL_COMPLETION_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <cstdlib>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "completions.h"
#include "support/files.h"

namespace tarvio_test {

using Words = std::set<std::string>;
using Line = std::vector<std::string>;

inline void expect_completions_of_the_commands() {
  const std::filesystem::path directory = TARVIO_COMPLETIONS;
  EXPECT_EQ(read_file(directory / "bash"), completions::bash()) << "run scripts/completions";
  EXPECT_EQ(read_file(directory / "zsh"), completions::zsh()) << "run scripts/completions";
  EXPECT_EQ(read_file(directory / "fish"), completions::fish()) << "run scripts/completions";
}

// Without quotes, and what keeps a shell from taking a character for something else.
inline std::string unquoted(std::string text) {
  std::erase_if(text, [](char byte) { return byte == '\'' || byte == '\\'; });
  return text;
}

inline void expect_words_of_the_help() {
  for (const client::Command* command : client::all_commands()) {
    for (const std::string& shell : {completions::zsh(), completions::fish()}) {
      const std::string text = unquoted(shell);
      EXPECT_THAT(text, testing::HasSubstr(unquoted(command->summary)));
      for (const client::Option& option : completions::shown_options(command)) {
        EXPECT_THAT(text, testing::HasSubstr(unquoted(completions::main_clause(option.help))));
      }
    }
  }
}

inline bool is_installed(const std::string& shell) {
  return std::system(("command -v " + shell + " >/dev/null").c_str()) == 0;
}

// Without what only some shells add: the part before "=", a slash after a directory, one-letter
// options, and options where an operand is due.
inline std::string plain(std::string word, const std::string& last) {
  const size_t equals = last.find('=');
  if (equals != std::string::npos && word.starts_with(last.substr(0, equals + 1))) {
    word.erase(0, equals + 1);
  }
  if (word.ends_with('/')) word.pop_back();
  const bool is_due = last.starts_with('-');
  return word.starts_with('-') && (!is_due || word.size() == 2) ? "" : word;
}

// What the shell offers for the last word of the line.
//
// place  a directory for what is written on the way.
inline Words offered_by(const std::string& shell, const std::string& program, const Line& line,
                        const std::filesystem::path& place) {
  // zsh makes a terminal of its own, in the sandbox.
  EXPECT_EQ(::mount("/dev/pts/ptmx", "/dev/ptmx", nullptr, MS_BIND, nullptr), 0);
  std::string command = TARVIO_COMPLETION_TESTS "/ask-" + shell + " '" TARVIO_COMPLETIONS "/" +
                        shell + "' '" + program + "'";
  for (const std::string& word : line) command += " '" + word + "'";
  command += " >" + (place / ".offered").string() + " 2>" + (place / ".errors").string();
  EXPECT_EQ(std::system(command.c_str()), 0) << command;
  EXPECT_EQ(::umount("/dev/ptmx"), 0);
  EXPECT_EQ(read_file(place / ".errors"), "") << command;
  std::istringstream lines(read_file(place / ".offered"));
  Words words;
  for (std::string word; std::getline(lines, word);) words.insert(plain(word, line.back()));
  words.erase("");
  return words;
}

}  // namespace tarvio_test

#endif
