// The completions of the shells, made from the list of commands of the program that this is linked
// into.
#ifndef TARVIO_TESTS_TARVIO_COMPLETIONS_COMPLETIONS_H
#define TARVIO_TESTS_TARVIO_COMPLETIONS_COMPLETIONS_H

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "commands/command_list.h"

namespace completions {

std::string bash();
std::string zsh();
std::string fish();

// The options that the help of a command shows, or that of the program.
std::vector<client::Option> shown_options(const client::Command* command);

// All options whose value is the next word, each once.
std::vector<client::Option> options_with_values();

// What is offered where: "applications".
std::string name_of(client::Offer offer);

// Whether any command has that offer.
bool is_offered(client::Offer offer);

// What is in the first column of a table of the program.
struct NameOffer {
  client::Offer offer;
  const char* arguments;  // of the program
};
inline constexpr std::array kNameOffers = {
    NameOffer{client::Offer::kApplications, "list --category application"},
    NameOffer{client::Offer::kPackages, "list"},
    NameOffer{client::Offer::kAreas, "areas"},
    // Whoever presses a key does not wait for a broker that is not there.
    NameOffer{client::Offer::kBoards, "devices --timeout 3"},
    NameOffer{client::Offer::kRollouts, "history --timeout 3"},
};

// The offers that are lists of words.
inline constexpr std::array kWordOffers = {client::Offer::kCategories,
                                           client::Offer::kSubcategories,
                                           client::Offer::kWaitStates, client::Offer::kCommands};

// The words of such an offer; else nothing.
std::vector<std::string> words_of(client::Offer offer);

// "-o|--output"
std::string spellings_of(const client::Option& option, std::string_view separator);

// A help text up to its first semicolon: what follows is detail.
std::string main_clause(const char* help);

std::string joined(const std::vector<std::string>& words, std::string_view separator);

// The text with "@program@" and "@function@" replaced: by the name of the program, and by that name
// as a function of a shell.
std::string of_program(std::string text);

// The text with one piece of it replaced by another, wherever it is.
std::string with(std::string text, std::string_view piece, std::string_view replacement);

}  // namespace completions

#endif
