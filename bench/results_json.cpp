// Results as JSON and back.
#include <json-c/json.h>

#include <array>
#include <memory>
#include <stdexcept>

#include "bench/results.h"
#include "bench/statistics.h"

namespace bench {
namespace {

constexpr std::array<const char*, 3> kRoleNames = {"subject", "peer", "limit"};
constexpr std::array<const char*, 2> kBetterNames = {"less", "more"};

struct Release {
  void operator()(json_object* object) const { json_object_put(object); }
};
using Json = std::unique_ptr<json_object, Release>;

// --- Writing -----------------------------------------------------------------------------------

json_object* Text(const std::string& text) {
  return json_object_new_string_len(text.data(), static_cast<int>(text.size()));
}

void Put(json_object* object, const char* key, json_object* value) {
  json_object_object_add(object, key, value);
}

json_object* FromCell(const Cell& cell) {
  json_object* object = json_object_new_object();
  if (cell.HasValue()) {
    Put(object, "median", json_object_new_double(Median(cell.samples)));
    Put(object, "spread", json_object_new_double(Spread(cell.samples)));
  } else {
    Put(object, "reason", Text(cell.reason));
  }
  json_object* samples = json_object_new_array();
  for (const double sample : cell.samples)
    json_object_array_add(samples, json_object_new_double(sample));
  Put(object, "samples", samples);
  return object;
}

void PutRatio(json_object* object, const char* key, const Results& results, const Figure& figure,
              const Entrant* entrant) {
  const auto ratio = results.Ratio(figure, entrant);
  if (ratio.has_value()) Put(object, key, json_object_new_double(*ratio));
}

json_object* FromFigure(const Results& results, const Figure& figure) {
  json_object* object = json_object_new_object();
  Put(object, "id", Text(figure.id));
  Put(object, "section", Text(figure.section));
  Put(object, "label", Text(figure.label));
  Put(object, "unit", Text(figure.unit));
  Put(object, "better", Text(kBetterNames[static_cast<size_t>(figure.better)]));
  json_object* cells = json_object_new_object();
  for (const Entrant& entrant : results.entrants) {
    const Cell* cell = results.Find(figure.id, entrant.id);
    if (cell != nullptr) Put(cells, entrant.id.c_str(), FromCell(*cell));
  }
  Put(object, "cells", cells);
  const Entrant* best = results.BestPeer(figure);
  if (best != nullptr) Put(object, "best_peer", Text(best->id));
  PutRatio(object, "to_best_peer", results, figure, best);
  PutRatio(object, "to_minimal", results, figure, results.First(Role::kLimit));
  return object;
}

json_object* FromEntrant(const Entrant& entrant) {
  json_object* object = json_object_new_object();
  Put(object, "id", Text(entrant.id));
  Put(object, "what", Text(entrant.what));
  Put(object, "version", Text(entrant.version));
  Put(object, "role", Text(kRoleNames[static_cast<size_t>(entrant.role)]));
  return object;
}

// --- Reading -----------------------------------------------------------------------------------

[[noreturn]] void Refuse(const std::string& what) {
  throw std::runtime_error("results: no " + what);
}

json_object* Get(json_object* object, const char* key, json_type type) {
  json_object* value = nullptr;
  if (!json_object_object_get_ex(object, key, &value) || !json_object_is_type(value, type)) {
    Refuse(key);
  }
  return value;
}

std::string GetText(json_object* object, const char* key) {
  return json_object_get_string(Get(object, key, json_type_string));
}

template <size_t size>
size_t GetName(json_object* object, const char* key, const std::array<const char*, size>& names) {
  const std::string text = GetText(object, key);
  for (size_t i = 0; i < size; ++i) {
    if (text == names[i]) return i;
  }
  Refuse(key);
}

template <typename Action>
void ForEach(json_object* array, Action action) {
  for (size_t i = 0; i < json_object_array_length(array); ++i)
    action(json_object_array_get_idx(array, i));
}

void TakeFigure(json_object* object, Results* results) {
  const Figure figure = {.id = GetText(object, "id"),
                         .section = GetText(object, "section"),
                         .label = GetText(object, "label"),
                         .unit = GetText(object, "unit"),
                         .better = static_cast<Better>(GetName(object, "better", kBetterNames))};
  json_object* cells = Get(object, "cells", json_type_object);
  for (const Entrant& entrant : results->entrants) {
    json_object* cell = nullptr;
    if (!json_object_object_get_ex(cells, entrant.id.c_str(), &cell)) continue;
    ForEach(Get(cell, "samples", json_type_array), [&](json_object* sample) {
      results->Add(figure, entrant.id, json_object_get_double(sample));
    });
    json_object* reason = nullptr;
    if (json_object_object_get_ex(cell, "reason", &reason)) {
      results->AddReason(figure, entrant.id, json_object_get_string(reason));
    }
  }
}

}  // namespace

std::string ToJson(const Results& results) {
  json_c_set_serialization_double_format("%.6g", JSON_C_OPTION_GLOBAL);
  const Json root(json_object_new_object());
  json_object* machine = json_object_new_object();
  for (const auto& [name, value] : results.machine)
    Put(machine, name.c_str(), Text(value));
  Put(root.get(), "machine", machine);
  json_object* method = json_object_new_array();
  for (const std::string& line : results.method)
    json_object_array_add(method, Text(line));
  Put(root.get(), "method", method);
  json_object* entrants = json_object_new_array();
  for (const Entrant& entrant : results.entrants)
    json_object_array_add(entrants, FromEntrant(entrant));
  Put(root.get(), "contenders", entrants);
  json_object* figures = json_object_new_array();
  for (const Figure& figure : results.Figures())
    json_object_array_add(figures, FromFigure(results, figure));
  Put(root.get(), "figures", figures);
  constexpr int kStyle =
      JSON_C_TO_STRING_PRETTY | JSON_C_TO_STRING_SPACED | JSON_C_TO_STRING_NOSLASHESCAPE;
  return std::string(json_object_to_json_string_ext(root.get(), kStyle)) + "\n";
}

Results FromJson(const std::string& text) {
  const Json root(json_tokener_parse(text.c_str()));
  if (root == nullptr) Refuse("JSON");
  Results results;
  json_object_object_foreach(Get(root.get(), "machine", json_type_object), name, value) {
    results.machine.emplace_back(name, json_object_get_string(value));
  }
  ForEach(Get(root.get(), "method", json_type_array),
          [&](json_object* line) { results.method.emplace_back(json_object_get_string(line)); });
  ForEach(Get(root.get(), "contenders", json_type_array), [&](json_object* object) {
    results.entrants.push_back({.id = GetText(object, "id"),
                                .what = GetText(object, "what"),
                                .version = GetText(object, "version"),
                                .role = static_cast<Role>(GetName(object, "role", kRoleNames))});
  });
  ForEach(Get(root.get(), "figures", json_type_array),
          [&](json_object* object) { TakeFigure(object, &results); });
  return results;
}

}  // namespace bench
