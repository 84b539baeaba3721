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

// If the model is unknown, every code is sent.
void RequireAnswer(const std::string& model, const PtzVerb& verb) {
  if (model.empty() || Answers(model, verb)) return;
  throw Failure("this device, " + model + ", does not support " + verb.name +
                "; supported by: " + Joined(AnsweringDevices(verb)));
}

// `duration` is "" without --for.
void RunVerb(const PtzVerb& verb, const VerbValues& values, const std::string& duration) {
  const std::string model = DeviceModel();
  RequireAnswer(model, verb);
  if (&verb == &PtzStopVerb()) {
    StopMotion(verb, model);
    return;
  }
  const CameraControl control = VerbControl(verb, values);
  if (duration.empty()) {
    SendControl(control);
    return;
  }
  RunTimed(
      *ParseDuration(duration), [&] { StartMotion(control, model); },
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
          Joined(AnsweringDevices(verb)).c_str());
  }
}

void PrintJsonTable() {
  const auto row = [](const PtzVerb& verb) {
    const bool is_any = verb.arguments == VerbArguments::kCode;
    return NewJsonObject({{"verb", NewJsonText(verb.name)},
                          {"arguments", NewJsonText(ArgumentsText(verb.arguments))},
                          {"code", is_any ? nullptr : json_object_new_int(verb.code)},
                          {"for", json_object_new_boolean(verb.stop_code != NO_STOP_CODE)},
                          {"modes", NewJsonArray(AnsweringDevices(verb), NewJsonText)},
                          {"help", NewJsonText(verb.help)}});
  };
  PrintJson(OwnJson(NewJsonArray(PtzVerbs(), row)));
}

// --- The command line --------------------------------------------------------------------------

// Turns a hexadecimal code into decimal digits, which the parser reads.
std::string TakeCode(std::string& text) {
  const auto code = ParseHexNumber(text, CONTROL_CODE_MAX);
  if (!code.has_value()) return text + " is not a hexadecimal code from 0 to FFFF";
  text = std::to_string(*code);
  return "";
}

void AddArguments(CLI::App* app, const PtzVerb& verb, VerbValues* values) {
  if (verb.arguments == VerbArguments::kSpeed) {
    app->add_option("--speed", values->speed, "1 to 127, default 64")
        ->type_name("N")
        ->transform(NumberFrom(SPEED_MIN, SPEED_MAX));
    return;
  }
  const bool has_code = verb.arguments == VerbArguments::kCode;
  auto* number = values->numbers.data();
  std::string_view names = ArgumentsText(verb.arguments);
  for (std::string name; !(name = TakeToken(&names, " []")).empty();) {
    if (has_code && name == "HEX") {
      app->add_option(name, values->code, "the control code, 0 to FFFF")
          ->required()
          ->type_name("")
          ->transform(CLI::Validator(TakeCode, ""));
      continue;
    }
    app->add_option(name, *number++, Format("%d to %d", verb.low, verb.high))
        ->required(!has_code)
        ->type_name("")
        ->transform(NumberFrom(verb.low, verb.high));
  }
}

std::string Example(const PtzVerb& verb) {
  return Format("Example: rs232ctl ptz %s%s%s", verb.name, *verb.example == '\0' ? "" : " ",
                verb.example);
}

// Returns the subcommand for the first word of a verb of two words. Its description lists the
// second words.
CLI::App* FindOrAddParent(CLI::App* ptz, const PtzVerb& verb, const std::string& word,
                          const std::string& second_word) {
  for (CLI::App* app :
       ptz->get_subcommands([&](const CLI::App* each) { return each->check_name(word); }))
    return app->description(app->get_description() + ", " + second_word);
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
  const std::string modes = "; supported by " + Joined(AnsweringDevices(verb));
  CLI::App* app = parent->add_subcommand(word, verb.help + modes)->footer(Example(verb));
  if (parent == ptz) app->group(verb.group);
  app->excludes(list);
  const auto values = std::make_shared<VerbValues>();
  const auto duration = std::make_shared<std::string>();
  AddArguments(app, verb, values.get());
  if (verb.stop_code != NO_STOP_CODE) {
    app->add_option("--for", *duration, "stop after this time, e.g. 500ms or 2s")
        ->type_name("TIME")
        ->check(CheckDuration);
  }
  app->final_callback([&verb, values, duration] { RunVerb(verb, *values, *duration); });
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
