#include "terminal/json.h"

#include <nlohmann/json.hpp>

#include "flash/area_parts.h"
#include "terminal/words.h"

namespace client {

namespace {

using Json = nlohmann::ordered_json;

constexpr int kIndent = 2;
constexpr int kOneLine = -1;

Json object_of(const Status& status) {
  return {{"name", status.name},
          {"state", state_word(status.state)},
          {"state_code", status.state},
          {"detail", status.detail}};
}

Json or_null(const std::string& text) { return text.empty() ? Json() : Json(text); }

const char* word_of(AreaState state) {
  switch (state) {
    case AreaState::kUntouched:
      return "untouched";
    case AreaState::kUnfinished:
      return "unfinished";
    default:
      return "written";
  }
}

Json object_of(const Package& package) {
  return {{"name", package.name},
          {"version", package.version},
          {"category", category_word(package.category)},
          {"category_code", package.category},
          {"subcategory", subcategory_word(package.subcategory)},
          {"subcategory_code", package.subcategory},
          {"maintainer", package.maintainer},
          {"start_file", or_null(package.start_file)},
          {"stop_file", or_null(package.stop_file)}};
}

Json object_of(const char* kind_of_operand, const Outcome& outcome) {
  return {{kind_of_operand, outcome.operand}, {"code", outcome.code}, {"message", outcome.message}};
}

Json object_of(const InspectedFile& file) {
  Json object = object_of("file", file.outcome);
  if (!file.package.kind) return object;
  const PackageKind& kind = *file.package.kind;
  object.update({{"name", file.package.name},
                 {"version", file.package.version},
                 {"category", kind.category},
                 {"category_code", kind.category_code},
                 {"subcategory", kind.subcategory},
                 {"subcategory_code", kind.subcategory_code},
                 {"targets", kind.targets}});
  return object;
}

Json object_of(const FilesOfPackage& package) {
  Json object = object_of("package", package.outcome);
  object["files"] = package.files;
  return object;
}

Json object_of(const Change& change, const char* kind_of_operand) {
  Json object = object_of(kind_of_operand, change.outcome);
  if (change.name.empty()) return object;
  object["name"] = change.name;
  object["installed_version"] = change.now.version ? Json(*change.now.version) : Json();
  object["opkg_code"] = change.opkg_code;
  object["opkg_lines"] = change.opkg_lines;
  return object;
}

Json object_of(const CheckedFile& file) {
  Json object = object_of("file", file.outcome);
  if (!file.is_measured) return object;
  object.update({{"fits", file.fits()},
                 {"needed_bytes", file.needed_bytes()},
                 {"control_bytes", file.control_bytes},
                 {"data_bytes", file.data_bytes},
                 {"free_bytes", file.free_bytes},
                 {"library_result", file.library_result}});
  return object;
}

// ASCII alone, because a terminal obeys some control characters beyond it. Bytes that are no UTF-8
// become replacement characters.
std::string text_of(const Json& json, int indent = kIndent) {
  return json.dump(indent, ' ', true, Json::error_handler_t::replace) + '\n';
}

template <typename Record>
std::string array_text(const std::vector<Record>& records) {
  Json array = Json::array();
  for (const Record& record : records) array.push_back(object_of(record));
  return text_of(array);
}

}  // namespace

std::string status_json(const Status& status) { return text_of(object_of(status)); }

std::string statuses_json(const std::vector<Status>& statuses) { return array_text(statuses); }

std::string change_json(const StatusChange& change) {
  if (change.now) return text_of(object_of(*change.now), kOneLine);
  return text_of({{"name", change.name}, {"state", nullptr}}, kOneLine);
}

std::string packages_json(const std::vector<Package>& packages) { return array_text(packages); }

std::string result_json(const Result& result) {
  Json object = {{"command", result.command}};
  if (result.name) object["name"] = *result.name;
  object["code"] = result.code;
  object["message"] = result.message;
  return text_of(object);
}

std::string inspected_json(const std::vector<InspectedFile>& files) { return array_text(files); }

std::string changes_json(const std::vector<Change>& changes, const char* kind_of_operand) {
  Json array = Json::array();
  for (const Change& change : changes) array.push_back(object_of(change, kind_of_operand));
  return text_of(array);
}

std::string files_json(const std::vector<FilesOfPackage>& packages) { return array_text(packages); }

std::string checked_json(const std::vector<CheckedFile>& files) { return array_text(files); }

std::string packed_json(const PackedFile& packed) {
  Json object = object_of("folder", packed.outcome);
  if (packed.outcome.code == 0) {
    object.update({{"file", packed.file},
                   {"name", packed.name},
                   {"version", packed.version},
                   {"size_bytes", packed.size_bytes}});
  }
  return text_of(object);
}

std::string areas_json() {
  Json areas = Json::array();
  for (const tarvio::FlashArea& area : tarvio::kFlashAreas) {
    areas.push_back({{"name", area.name},
                     {"device", area.source},
                     {"size", area.backup_bytes},
                     {"method", method_of(area)}});
  }
  return text_of(areas);
}

std::string saved_json(const Outcome& outcome, const SavedImage& image) {
  Json object = object_of("file", outcome);
  object["size"] = image.size_bytes;
  object["areas"] = Json::array();
  for (const SavedArea& area : image.areas) {
    object["areas"].push_back(
        {{"name", area.name}, {"size", area.size_bytes}, {"failure", or_null(area.failure)}});
  }
  return text_of(object);
}

std::string restored_json(const Outcome& outcome, const std::vector<RestoredArea>& areas) {
  Json object = object_of("file", outcome);
  object["areas"] = Json::array();
  for (const RestoredArea& area : areas) {
    object["areas"].push_back({{"name", area.name},
                               {"size", area.size_bytes},
                               {"state", word_of(area.state)},
                               {"verified", area.is_verified},
                               {"failure", or_null(area.failure)}});
  }
  return text_of(object);
}

}  // namespace client
