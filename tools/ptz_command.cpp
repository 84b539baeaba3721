#include <CLI/CLI.hpp>
#include <array>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>

#include "relay/daemon_datagram.h"
#include "relay/pelco_d.h"
#include "relay/ptz_tables.h"
#include "tools/commands.h"
#include "tools/daemon_ports.h"
#include "tools/device_mode.h"
#include "tools/failure.h"
#include "tools/format.h"
#include "tools/json.h"
#include "tools/output.h"
#include "tools/parse.h"
#include "tools/ptz_verbs.h"
#include "tools/timed_motion.h"
#include "tools/usage.h"

namespace tools {

namespace {

// --- Sending -----------------------------------------------------------------------------------

void WriteFrame(const PelcoFrame& frame) {
  SendToDaemon(RS232_UDP_WRITE, frame);
}

// Sends all records even if one fails, then throws the first failure.
void StopMotion(const PtzVerb& verb, const std::string& model) {
  std::exception_ptr failure;
  const auto attempt = [&failure](const auto& send) {
    try {
      send();
    } catch (const Failure&) {
      if (!failure) failure = std::current_exception();
    }
  };
  for (const CameraControl& control : StopControls(verb))
    attempt([&control] { SendControl(control); });
  if (IsStoppedByFrame(model)) attempt([] { WriteFrame(PelcoBuild({})); });
  if (failure) std::rethrow_exception(failure);
}

// Starts a motion that will be stopped later. If only a stop frame stops this head, that frame goes
// to another port than codes, and the daemon might serve that port first; so the motion is sent as
// a frame, too.
void StartMotion(const CameraControl& control, const std::string& model) {
  if (!IsStoppedByFrame(model)) {
    SendControl(control);
    return;
  }
  const PtzSequence sequence = PtzTranslate(PtzTableForModel(model.c_str()), control);
  for (int i = 0; i < sequence.count; ++i)
    WriteFrame(sequence.steps[static_cast<size_t>(i)].frame);
}

// The validated texts of a command line; "" if not given.
struct Request {
  std::string speed;
  std::string duration;
  std::string code;
  std::array<std::string, PARAMETER_COUNT> numbers;
};

VerbValues ValuesOf(const Request& request) {
  VerbValues values;
  if (!request.speed.empty()) values.speed = *ParseNumber(request.speed, SPEED_MIN, SPEED_MAX);
  if (!request.code.empty()) values.code = *ParseHexNumber(request.code, CONTROL_CODE_MAX);
  for (const std::string& text : request.numbers) {
    if (!text.empty()) values.numbers.push_back(*ParseNumber(text, PARAMETER_MIN, PARAMETER_MAX));
  }
  return values;
}

// If the model is unknown, every code is sent.
void RequireAnswer(const std::string& model, const PtzVerb& verb) {
  if (model.empty() || Answers(model, verb)) return;
  throw Failure(EXIT_STATUS_FAILED, "this device, " + model + ", does not support " + verb.name +
                                        "; supported by: " + AnsweringDevicesText(verb));
}

void RunVerb(const PtzVerb& verb, const Request& request) {
  const std::string model = DeviceModel();
  RequireAnswer(model, verb);
  if (&verb == &PtzStopVerb()) {
    StopMotion(verb, model);
    return;
  }
  const CameraControl control = VerbControl(verb, ValuesOf(request));
  if (request.duration.empty()) {
    SendControl(control);
    return;
  }
  RunTimed(
      *ParseDuration(request.duration), [&] { StartMotion(control, model); },
      [&] { StopMotion(verb, model); });
}

// --- The list ----------------------------------------------------------------------------------

void PrintTable() {
  Print(stdout, "%-16s %-18s %-6s %-5s %s\n", "VERB", "ARGUMENTS", "CODE", "--for", "SUPPORTED BY");
  for (const PtzVerb& verb : PtzVerbs()) {
    const bool is_any = verb.arguments == VerbArguments::kCode;
    const std::string code = is_any ? "any" : Format("0x%04X", verb.code);
    Print(stdout, "%-16s %-18s %-6s %-5s %s\n", verb.name, ArgumentsText(verb.arguments),
          code.c_str(), verb.stop_code == NO_STOP_CODE ? "" : "yes",
          AnsweringDevicesText(verb).c_str());
  }
}

void PrintJsonTable() {
  const Json list = OwnJson(json_object_new_array());
  for (const PtzVerb& verb : PtzVerbs()) {
    json_object* modes = json_object_new_array();
    for (const std::string& name : AnsweringDevices(verb))
      json_object_array_add(modes, NewJsonText(name));
    const bool is_any = verb.arguments == VerbArguments::kCode;
    json_object* row =
        NewJsonObject({{"verb", NewJsonText(verb.name)},
                       {"arguments", NewJsonText(ArgumentsText(verb.arguments))},
                       {"code", is_any ? nullptr : json_object_new_int(verb.code)},
                       {"for", json_object_new_boolean(verb.stop_code != NO_STOP_CODE)},
                       {"modes", modes},
                       {"help", NewJsonText(verb.help)}});
    json_object_array_add(list.get(), row);
  }
  PrintJson(list);
}

// --- The command line --------------------------------------------------------------------------

std::string CheckCode(const std::string& text) {
  return ParseHexNumber(text, CONTROL_CODE_MAX).has_value()
             ? ""
             : text + " is not a hexadecimal code from 0 to FFFF";
}

void AddNumber(CLI::App* app, const char* name, std::string* text, int low, int high,
               bool is_required) {
  app->add_option(name, *text, std::to_string(low) + " to " + std::to_string(high))
      ->required(is_required)
      ->type_name("")
      ->check(NumberFrom(low, high));
}

void AddArguments(CLI::App* app, const PtzVerb& verb, Request* request) {
  auto& [first, second, third] = request->numbers;
  switch (verb.arguments) {
    case VerbArguments::kSpeed:
      app->add_option("--speed", request->speed, "1 to 127, default 64")
          ->type_name("N")
          ->check(NumberFrom(SPEED_MIN, SPEED_MAX));
      break;
    case VerbArguments::kNumber:
      AddNumber(app, "N", &first, verb.low, verb.high, true);
      break;
    case VerbArguments::kMove:
      AddNumber(app, "PAN", &first, PARAMETER_MIN, AXIS_MAX, true);
      AddNumber(app, "TILT", &second, PARAMETER_MIN, AXIS_MAX, true);
      AddNumber(app, "ZOOM", &third, PARAMETER_MIN, AXIS_MAX, true);
      break;
    case VerbArguments::kCode:
      app->add_option("HEX", request->code, "the control code, 0 to FFFF")
          ->required()
          ->type_name("")
          ->check(CheckCode);
      AddNumber(app, "P1", &first, PARAMETER_MIN, PARAMETER_MAX, false);
      AddNumber(app, "P2", &second, PARAMETER_MIN, PARAMETER_MAX, false);
      AddNumber(app, "P3", &third, PARAMETER_MIN, PARAMETER_MAX, false);
      break;
    case VerbArguments::kNone:
      break;
  }
  if (verb.stop_code != NO_STOP_CODE) {
    app->add_option("--for", request->duration, "stop after this time, e.g. 500ms or 2s")
        ->type_name("TIME")
        ->check(CheckDuration);
  }
}

std::string Example(const PtzVerb& verb) {
  const std::string tail = *verb.example == '\0' ? "" : std::string(" ") + verb.example;
  return std::string("Example: rs232ctl ptz ") + verb.name + tail;
}

// Returns the subcommand for the first word of a verb of two words. Its description lists the
// second words.
CLI::App* FindOrAddParent(CLI::App* ptz, const PtzVerb& verb, const std::string& word,
                          const std::string& second_word) {
  for (CLI::App* app : ptz->get_subcommands([](const CLI::App*) { return true; })) {
    if (app->get_name() != word) continue;
    app->description(app->get_description() + ", " + second_word);
    return app;
  }
  CLI::App* parent = ptz->add_subcommand(word, "commands: " + second_word);
  return parent->group(verb.group)->require_subcommand(1)->footer(Example(verb));
}

void AddVerb(CLI::App* ptz, const PtzVerb& verb, CLI::Option* list) {
  std::string word = verb.name;
  CLI::App* parent = ptz;
  if (const size_t blank = word.find(' '); blank != std::string::npos) {
    const std::string first_word = word.substr(0, blank);
    word.erase(0, blank + 1);
    parent = FindOrAddParent(ptz, verb, first_word, word);
  }
  const std::string modes = "; supported by " + AnsweringDevicesText(verb);
  CLI::App* app = parent->add_subcommand(word, verb.help + modes)->footer(Example(verb));
  if (parent == ptz) app->group(verb.group);
  app->excludes(list);
  const auto request = std::make_shared<Request>();
  AddArguments(app, verb, request.get());
  app->final_callback([&verb, request] { RunVerb(verb, *request); });
}

}  // namespace

void AddPtzCommand(CLI::App* app) {
  CLI::App* ptz = app->add_subcommand("ptz", "Send camera-control commands");
  ptz->require_subcommand(0, 1);
  const auto list = std::make_shared<bool>();
  const auto json = std::make_shared<bool>();
  CLI::Option* list_option = ptz->add_flag("--list", *list, "print all verbs as a table");
  ptz->add_flag("--json", *json, "print the table as JSON")->needs(list_option);
  for (const PtzVerb& verb : PtzVerbs())
    AddVerb(ptz, verb, list_option);
  ptz->footer(
      "The device's model determines which verbs it supports; the tool rejects the others. With "
      "--for, a signal that interrupts the tool also stops the motion; the exit status is then 128 "
      "plus the number of the signal.\n"
      "Examples:\n"
      "  rs232ctl ptz zoom-tele --for 500ms\n"
      "  rs232ctl ptz pan-left --speed 40 --for 2s\n"
      "  rs232ctl ptz preset go 5\n"
      "  rs232ctl ptz --list --json");
  ptz->final_callback([ptz, list, json] {
    if (!ptz->get_subcommands().empty()) return;
    if (!*list)
      throw Failure(EXIT_STATUS_USAGE, "ptz needs a verb; rs232ctl ptz --list prints all");
    *json ? PrintJsonTable() : PrintTable();
  });
}

}  // namespace tools
