// tarvio-transfer: fetches and sends files by HTTPS, for the agent, which stays small that way.
#include <curl/curl.h>
#include <fcntl.h>
#include <getopt.h>
#include <sodium.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <stdexcept>
#include <string>

#include "base/owners.h"
#include "base/pipe.h"
#include "fleet/file_sha256.h"

namespace {

constexpr int kUsage = 64;
constexpr int kTries = 6;
constexpr unsigned kFirstPauseSeconds = 1;
constexpr long kConnectSeconds = 30;
constexpr long kStallSeconds = 30;
constexpr long kMaxRedirects = 5;
constexpr mode_t kMode = 0600;
constexpr char kHelp[] =
    "usage: tarvio-transfer get URL FILE [OPTION]...\n"
    "       tarvio-transfer put FILE URL [OPTION]...\n"
    "\n"
    "Fetches a file by HTTPS, or sends it with PUT. What a break has left of a fetched\n"
    "file is in FILE.part, and is continued. Prints how far it is as a line of JSON each\n"
    "second.\n"
    "\n"
    "      --size N           number of bytes that the file must have\n"
    "      --sha256 DIGITS    SHA-256 that the file must have\n"
    "      --limit N          number of bytes that the file may have\n"
    "      --ca-file FILE     authorities in place of the system's\n"
    "  -h, --help             print this help\n"
    "\n"
    "exit status: 0 done, 1 failed, 64 wrong command line\n";

struct Options {
  bool is_put = false;
  std::string url;
  std::string file;
  std::string sha256;
  std::string ca_file;
  curl_off_t size = -1;   // -1: not known
  curl_off_t limit = -1;  // -1: none
};

[[noreturn]] void fail(const std::string& what) { throw std::runtime_error(what); }
[[noreturn]] void fail_of_system(const std::string& what) {
  fail(what + ": " + std::strerror(errno));
}

struct FreeHandle {
  void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
using Handle = std::unique_ptr<CURL, FreeHandle>;

// A number as the progress has it, at most once a second.
class Figures {
 public:
  void show(curl_off_t done, curl_off_t total) {
    const std::time_t now = std::time(nullptr);
    if (now == shown_) return;
    shown_ = now;
    (void)std::printf("{\"done\":%lld,\"total\":%lld}\n", static_cast<long long>(done),
                      static_cast<long long>(total));
    // Whoever began it has ended, and may begin it again: two at once would spoil the file.
    if (std::fflush(stdout) != 0) _exit(EXIT_FAILURE);
  }

 private:
  std::time_t shown_ = 0;
};

// One try, with what curl calls.
struct Try {
  CURL* handle;
  int fd;
  curl_off_t from;  // where it goes on
  curl_off_t limit;
  curl_off_t total;
  Figures* figures;
  int write_error = 0;
  bool is_too_long = false;
};

// A server that cannot continue sends all of it.
bool starts_over(Try& one) {
  long status = 0;
  constexpr long kWhole = 200;
  (void)curl_easy_getinfo(one.handle, CURLINFO_RESPONSE_CODE, &status);
  if (one.from == 0 || status != kWhole) return true;
  one.from = 0;
  return ftruncate(one.fd, 0) == 0 && lseek(one.fd, 0, SEEK_SET) == 0;
}

size_t take(char* bytes, size_t, size_t count, void* object) {
  Try& one = *static_cast<Try*>(object);
  if (!starts_over(one)) {
    one.write_error = errno;
    return 0;
  }
  const off_t at = lseek(one.fd, 0, SEEK_CUR);
  if (one.limit >= 0 && at + static_cast<curl_off_t>(count) > one.limit) {
    one.is_too_long = true;
    return 0;
  }
  if (!tarvio::write_all(one.fd, {bytes, count})) {
    one.write_error = errno;
    return 0;
  }
  return count;
}

size_t give(char* room, size_t, size_t size, void* object) {
  const ssize_t count = tarvio::read_some(static_cast<Try*>(object)->fd, {room, size});
  return count < 0 ? CURL_READFUNC_ABORT : static_cast<size_t>(count);
}

int progress(void* object, curl_off_t to_get, curl_off_t got, curl_off_t, curl_off_t sent) {
  const Try& one = *static_cast<Try*>(object);
  if (sent > 0 || to_get > 0) {
    one.figures->show(one.from + (sent > 0 ? sent : got), one.total);
  }
  return 0;
}

void set_up(Try& one, const Options& options, char* words) {
  const auto set = [&](CURLoption option, auto value) {
    if (curl_easy_setopt(one.handle, option, value) != CURLE_OK) fail("curl lacks an option");
  };
  set(CURLOPT_URL, options.url.c_str());
  // What is sent goes to a server of the operator's own network; what comes is for a board.
  set(CURLOPT_PROTOCOLS_STR, options.is_put ? "http,https" : "https");
  set(CURLOPT_REDIR_PROTOCOLS_STR, "https");
  set(CURLOPT_FOLLOWLOCATION, 1L);
  set(CURLOPT_MAXREDIRS, kMaxRedirects);
  set(CURLOPT_FAILONERROR, 1L);
  set(CURLOPT_NOSIGNAL, 1L);
  set(CURLOPT_CONNECTTIMEOUT, kConnectSeconds);
  set(CURLOPT_LOW_SPEED_LIMIT, 1L);
  set(CURLOPT_LOW_SPEED_TIME, kStallSeconds);
  set(CURLOPT_ERRORBUFFER, words);
  set(CURLOPT_NOPROGRESS, 0L);
  set(CURLOPT_XFERINFOFUNCTION, progress);
  set(CURLOPT_XFERINFODATA, &one);
  if (!options.ca_file.empty()) set(CURLOPT_CAINFO, options.ca_file.c_str());
  if (options.is_put) {
    set(CURLOPT_UPLOAD, 1L);
    set(CURLOPT_READFUNCTION, give);
    set(CURLOPT_READDATA, &one);
    set(CURLOPT_INFILESIZE_LARGE, one.total);
  } else {
    set(CURLOPT_WRITEFUNCTION, take);
    set(CURLOPT_WRITEDATA, &one);
    set(CURLOPT_RESUME_FROM_LARGE, one.from);
  }
}

// Whether another try may help.
bool may_pass(CURLcode result, long status) {
  constexpr long kFirstOfServer = 500;
  constexpr long kTooMany = 429;
  switch (result) {
    case CURLE_HTTP_RETURNED_ERROR:
      return status >= kFirstOfServer || status == kTooMany;
    case CURLE_COULDNT_CONNECT:
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_GOT_NOTHING:
    case CURLE_OPERATION_TIMEDOUT:
    case CURLE_PARTIAL_FILE:
    case CURLE_RECV_ERROR:
    case CURLE_SEND_ERROR:
    case CURLE_SSL_CONNECT_ERROR:
      return true;
    default:
      return false;
  }
}

std::string cause_of(const Try& one, const Options& options, CURLcode result, const char* words) {
  if (one.is_too_long) {
    return "the file has more than " + std::to_string(one.limit) + " bytes";
  }
  if (one.write_error != 0) {
    return "cannot write '" + options.file + ".part': " + std::strerror(one.write_error);
  }
  return words[0] != '\0' ? words : curl_easy_strerror(result);
}

// Repeats it as long as that may help; the file is at the place where it goes on.
void transfer(const Options& options, int fd, curl_off_t total, Figures& figures) {
  unsigned pause = kFirstPauseSeconds;
  for (int tries = 1;; ++tries) {
    const Handle handle(curl_easy_init());
    if (handle == nullptr) fail("out of memory");
    std::array<char, CURL_ERROR_SIZE> words = {};
    const off_t from = lseek(fd, 0, options.is_put ? SEEK_SET : SEEK_END);
    Try one = {.handle = handle.get(),
               .fd = fd,
               .from = from,
               .limit = options.size >= 0 ? options.size : options.limit,
               .total = total,
               .figures = &figures};
    set_up(one, options, words.data());
    const CURLcode result = curl_easy_perform(handle.get());
    if (result == CURLE_OK) return;
    long status = 0;
    (void)curl_easy_getinfo(handle.get(), CURLINFO_RESPONSE_CODE, &status);
    const bool is_final = one.is_too_long || one.write_error != 0 || !may_pass(result, status);
    if (is_final || tries == kTries) fail(cause_of(one, options, result, words.data()));
    (void)sleep(pause);
    pause *= 2;
  }
}

off_t size_of(int fd) {
  struct stat status = {};
  if (fstat(fd, &status) != 0) fail_of_system("cannot read what has come");
  return status.st_size;
}

// What is wrong with the whole file, or empty.
std::string defect_of(const Options& options, int fd) {
  const off_t size = size_of(fd);
  if (options.size >= 0 && size != options.size) {
    return "the file has " + std::to_string(size) + " bytes, not " + std::to_string(options.size);
  }
  if (!options.sha256.empty() && fleet::sha256_of(fd) != options.sha256) {
    return "the SHA-256 of the file is not that of the request";
  }
  return "";
}

void empty(int fd, const std::string& file) {
  if (ftruncate(fd, 0) != 0 || lseek(fd, 0, SEEK_SET) != 0)
    fail_of_system("cannot write '" + file + "'");
}

void get(const Options& options) {
  const std::string part = options.file + ".part";
  const tarvio::Fd fd(open(part.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kMode));
  if (!fd.valid()) fail_of_system("cannot write '" + part + "'");
  Figures figures;
  // Without a size, nobody knows whether it is continued or whole. What is too long is of another
  // file.
  if (options.size < 0 || size_of(fd.get()) > options.size) empty(fd.get(), part);
  const bool is_continued = size_of(fd.get()) > 0;
  if (size_of(fd.get()) != options.size) transfer(options, fd.get(), options.size, figures);
  std::string defect = defect_of(options, fd.get());
  // A power cut may have left bytes that were never written.
  if (!defect.empty() && is_continued) {
    empty(fd.get(), part);
    transfer(options, fd.get(), options.size, figures);
    defect = defect_of(options, fd.get());
  }
  if (!defect.empty()) {
    (void)unlink(part.c_str());
    fail(defect);
  }
  if (fsync(fd.get()) != 0 || rename(part.c_str(), options.file.c_str()) != 0) {
    fail_of_system("cannot write '" + options.file + "'");
  }
}

void put(const Options& options) {
  const tarvio::Fd fd(open(options.file.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd.valid()) fail_of_system("cannot read '" + options.file + "'");
  Figures figures;
  transfer(options, fd.get(), size_of(fd.get()), figures);
}

curl_off_t number_in(const char* text) {
  char* end = nullptr;
  errno = 0;
  const long long number = std::strtoll(text, &end, 10);
  return errno != 0 || *text == '\0' || *end != '\0' || number < 0 ? -1 : number;
}

int complain(const std::string& what, int status) {
  (void)std::fprintf(stderr, "tarvio-transfer: %s\n", what.c_str());
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  enum { kSize = 1000, kSha256, kLimit, kCaFile };
  const option long_options[] = {{"size", required_argument, nullptr, kSize},
                                 {"sha256", required_argument, nullptr, kSha256},
                                 {"limit", required_argument, nullptr, kLimit},
                                 {"ca-file", required_argument, nullptr, kCaFile},
                                 {"help", no_argument, nullptr, 'h'},
                                 {nullptr, 0, nullptr, 0}};
  Options options;
  for (int letter = 0; (letter = getopt_long(argc, argv, "h", long_options, nullptr)) != -1;) {
    switch (letter) {
      case kSize:
      case kLimit: {
        const curl_off_t number = number_in(optarg);
        if (number < 0) return complain(std::string("'") + optarg + "' is not a number", kUsage);
        (letter == kSize ? options.size : options.limit) = number;
        break;
      }
      case kSha256:
        options.sha256 = optarg;
        break;
      case kCaFile:
        options.ca_file = optarg;
        break;
      case 'h':
        return std::fputs(kHelp, stdout) < 0 || std::fflush(stdout) != 0;
      default:
        return kUsage;
    }
  }
  // It must not go on beside the one that the next agent starts.
  (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
  const std::string what = argc - optind == 3 ? argv[optind] : "";
  if (what != "get" && what != "put") {
    return complain("say what to transfer: 'tarvio-transfer --help' shows how", kUsage);
  }
  options.is_put = what == "put";
  options.url = argv[optind + (options.is_put ? 2 : 1)];
  options.file = argv[optind + (options.is_put ? 1 : 2)];
  try {
    if (sodium_init() < 0 || curl_global_init(CURL_GLOBAL_DEFAULT) != 0) fail("out of memory");
    options.is_put ? put(options) : get(options);
    return EXIT_SUCCESS;
  } catch (const std::exception& error) {
    return complain(
        (options.is_put ? "cannot send '" + options.file + "' to '" : "cannot fetch '") +
            options.url + "': " + error.what(),
        EXIT_FAILURE);
  }
}
