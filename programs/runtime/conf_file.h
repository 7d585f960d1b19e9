// Files of lines KEY: VALUE.
#ifndef TARVIO_RUNTIME_CONF_FILE_H
#define TARVIO_RUNTIME_CONF_FILE_H

#include "base/owners.h"
#include "tarvio/conf.h"

namespace runtime {

// The pairs of a file, and under the same keys in the same order, the numbers of their lines.
struct ConfFile {
  tarvio::Conf pairs = tarvio::make_conf();
  tarvio::Conf lines = tarvio::make_conf();
};

// What is wrong with a file: the file, with the line if it is in one, and cause and remedy.
struct Mistake {
  char place[512] = "";
  char why[256] = "";
};

// What is wrong with a pair and what to do about it, or null.
using Complaint = const char* (*)(const char* key, const char* value);

enum class MissingFile { kRefused, kEmpty };

// Whether words before a key are dropped (oddity 27).
enum class WordsBeforeKey { kDropped, kRefused };

// Reads a file. False, with the mistake, when it cannot be used. Of pairs with the same key the
// last one alone counts.
bool read_conf_file(const char* path, MissingFile missing, Complaint complaint_about,
                    ConfFile& file, Mistake& mistake,
                    WordsBeforeKey words = WordsBeforeKey::kDropped);

// Makes a mistake in a line of a file. False.
bool refuse_line(const char* path, const char* number, const char* why, Mistake& mistake);

// The number that a value is, from 0 to a maximum; -1 for any other text.
long number_of(const char* text, long maximum);

}  // namespace runtime

#endif
