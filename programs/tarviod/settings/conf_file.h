// Files of lines KEY: VALUE, with mistakes reported by file, line, cause and remedy.
#ifndef TARVIOD_CONF_FILE_H
#define TARVIOD_CONF_FILE_H

#include "base/owners.h"
#include "tarvio/conf.h"

namespace tarviod {

// The pairs of a file, and under the same keys in the same order, the numbers of their lines.
struct ConfFile {
  tarvio::Conf pairs = tarvio::make_conf();
  tarvio::Conf lines = tarvio::make_conf();
};

// What is wrong with a pair and what to do about it, or null.
using Complaint = const char* (*)(const char* key, const char* value);

enum class MissingFile { kRefused, kEmpty };

// Reads a file. False when it cannot be used, with the reason on standard error and in the log.
// Of pairs with the same key the last one alone counts.
bool read_conf_file(const char* path, MissingFile missing, Complaint complaint_about,
                    ConfFile& file);

// Reports a mistake in a line of a file. False.
bool refuse_line(const char* path, const char* number, const char* why,
                 int line = __builtin_LINE());

// The number that a value is, from 0 to a maximum; -1 for any other text.
long number_of(const char* text, long maximum);

}  // namespace tarviod

#endif
