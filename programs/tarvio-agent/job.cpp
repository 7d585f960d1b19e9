#include "job.h"

#include <cerrno>
#include <cstdio>
#include <utility>

#include "orphan.h"

namespace agent {

namespace {

constexpr char kTransfer[] = "tarvio-transfer";
constexpr char kMaxSignatureBytes[] = "4096";
constexpr char kSignature[] = ".minisig";
constexpr char kPart[] = ".part";  // as tarvio-transfer calls what it has not got whole

std::string file_of(const std::string& directory, const std::string& id) {
  return directory + "/files/" + id + ".tbx";
}

}  // namespace

void remove_files(const std::string& directory, const std::string& id) {
  for (const std::string& ending : {std::string(), std::string(kSignature)}) {
    const std::string file = file_of(directory, id) + ending;
    (void)std::remove(file.c_str());
    (void)std::remove((file + kPart).c_str());
  }
}

Json answer_of(const std::string& id, const char* state, const std::string& message) {
  return {{"id", id.empty() ? Json() : Json(id)}, {"state", state}, {"message", message}};
}

void add_note(Json& answer, const std::string& words) {
  const std::string note = answer.value("note", "");
  answer["note"] = note + (note.empty() ? "" : "; ") + words;
}

Job::Job(Request request, const Settings& settings, std::string note, Show show)
    : request_(std::move(request)),
      settings_(settings),
      note_(std::move(note)),
      show_(std::move(show)) {
  plan();
  start_next();
}

void Job::plan() {
  const std::string base = file_of(settings_.directory, request_.id);
  const Transfer& download = request_.download;
  std::vector<std::string> get = {kTransfer, "get"};
  if (!settings_.download_ca_file.empty()) {
    get.insert(get.end(), {"--ca-file", settings_.download_ca_file});
  }
  std::vector<std::string> put = get;
  put[1] = "put";
  const auto with = [](std::vector<std::string> words, const std::vector<std::string>& more) {
    words.insert(words.end(), more.begin(), more.end());
    return words;
  };
  std::vector<std::string> work = {"tarvio"};
  work.insert(work.end(), request_.words.begin(), request_.words.end());
  work.emplace_back("--json");
  if (!download.url.empty()) {
    const std::string signature = base + kSignature;
    const bool needs_signature = request_.words.back() == "--require-signature";
    steps_.push_back(
        {.name = "download",
         .words = with(get, {download.url, base, "--size", std::to_string(download.size),
                             "--sha256", download.sha256})});
    steps_.push_back(
        {.name = "signature",
         .words = with(get, {download.url + kSignature, signature, "--limit", kMaxSignatureBytes}),
         .may_fail = !needs_signature});
    work.push_back(base);
  }
  if (!request_.upload.url.empty()) {
    work.insert(work.end(), {"--to", base, "--overwrite"});
  }
  steps_.push_back({.name = "work", .words = std::move(work), .is_result = true});
  if (!request_.upload.url.empty()) {
    steps_.push_back({.name = "upload", .words = with(put, {base, request_.upload.url})});
  }
}

void Job::start_next() {
  const Step& step = steps_[next_];
  if (steps_.size() > 1) show_({{"id", request_.id}, {"step", step.name}});
  child_ = std::make_unique<fleet::ChildProcess>(
      step.words, step.is_result ? std::function<void(std::string_view)>()
                                 : [this](std::string_view line) { show(line); });
  if (step.is_result && request_.room == Room::kPackagesAndFlash) {
    write_working(settings_.directory, child_->pid());
  }
}

// What the transfer says each second.
void Job::show(std::string_view line) const {
  const Json figures = Json::parse(line, nullptr, false);
  if (!figures.is_object()) return;
  Json progress = {{"id", request_.id}, {"step", steps_[next_].name}};
  progress.update(figures);
  show_(progress);
}

// Of a removal that is run again, although the cut came only after its end.
bool Job::is_done_already(const fleet::ChildEnd& ended) const {
  return !note_.empty() && request_.command == "remove" && ended.status != 0 &&
         result_.is_array() && result_.size() == 1 && result_[0].value("code", 0) == ENOPKG;
}

std::optional<Json> Job::step() {
  const std::optional<fleet::ChildEnd> ended = child_->step();
  if (!ended) return std::nullopt;
  const Step& step = steps_[next_];
  if (step.is_result) {
    const Json json = Json::parse(ended->output, nullptr, false);
    result_ = json.is_discarded() ? Json() : json;
    is_cut_ = ended->is_cut;
    // The other lane's job may still be at work.
    if (request_.room == Room::kPackagesAndFlash) remove_working(settings_.directory);
    if (is_done_already(*ended)) return end(0, "");
  }
  const bool has_failed = ended->status != 0 && !step.may_fail;
  if (!has_failed && ++next_ < steps_.size()) {
    try {
      start_next();
      return std::nullopt;
    } catch (const std::exception& error) {
      return end(1, error.what());
    }
  }
  return end(has_failed ? ended->status : 0, message_of(step, *ended));
}

// Whoever asked knows a package by its URL, and nothing of the file in which it came.
std::string Job::message_of(const Step& step, const fleet::ChildEnd& ended) const {
  std::string message = fleet::message_in(ended, step.words.front());
  const std::string& url = request_.download.url;
  if (!step.is_result || url.empty()) return message;
  const std::string file = file_of(settings_.directory, request_.id);
  size_t at = 0;
  while ((at = message.find(file, at)) != std::string::npos) {
    message.replace(at, file.size(), url);
    at += url.size();
  }
  return message;
}

Json Job::end(int status, const std::string& message) {
  remove_files(settings_.directory, request_.id);
  Json answer =
      answer_of(request_.id, status == 0 ? kDone : kFailed,
                message.empty() ? (status == 0 ? "Success" : "no reason was given") : message);
  answer["status"] = status;
  if (!note_.empty()) answer["note"] = note_;
  if (is_cut_) add_note(answer, "its result is too long for the agent: ask for less");
  answer["result"] = result_;
  return answer;
}

}  // namespace agent
