// What a fuzzer puts an input through. The test FuzzCorpus does the same with the inputs that are
// kept.
#ifndef TARVIO_FUZZ_FUZZER_H
#define TARVIO_FUZZ_FUZZER_H

#include <string>

namespace tarvio_fuzz {

struct Fuzzer {
  const char* corpus;  // a directory in fuzz/corpus
  // What went wrong, or an empty text.
  std::string (*check)(const std::string& input);
};

extern const Fuzzer kConfig;      // configuration files
extern const Fuzzer kContainers;  // lists and tables
extern const Fuzzer kControl;     // control files, as the library reads them
extern const Fuzzer kFields;      // control files, as the client checks them
extern const Fuzzer kFleet;       // what comes from a broker, and what is kept of it
extern const Fuzzer kLog;         // the reader of logs, by several processes for each input
extern const Fuzzer kPackage;     // package files, by several processes for each input
extern const Fuzzer kParse;       // lines of logs
extern const Fuzzer kReply;       // replies to a client
extern const Fuzzer kRequest;     // requests to the manager
extern const Fuzzer kSignature;   // signatures and keys
extern const Fuzzer kTools;       // what opkg, df, tar and the flash tools print

}  // namespace tarvio_fuzz

#endif
