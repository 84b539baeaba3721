// The verbs of the tool in its completion and its manual. That they work where they claim to is
// for the system tests, which send each in each mode.
#include <gtest/gtest.h>

#include <CLI/CLI.hpp>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <map>
#include <set>
#include <sstream>

#include "sim/device.h"
#include "tools/commands.h"
#include "tools/param_fields.h"
#include "tools/ptz_verbs.h"

namespace {

using tools::PtzVerb;
using Words = std::set<std::string>;

TEST(CtlVerbs, ModesHaveNames) {
  EXPECT_EQ(tools::ModesText(tools::MODES_RELAYED | tools::MODE_LENS), "relay, lens");
  EXPECT_EQ(tools::ModesText(tools::MODE_RELAY | tools::MODE_QB620 | tools::MODE_SD),
            "relay (not QB-610), SD");
}

// --- Completion and manual --------------------------------------------------------------------

// What bash offers for the last word of a line, whose words are divided by blanks.
Words Completions(const std::string& line) {
  const std::string script =
      "source '" RS232_SOURCE_DIR "/tools/completion/rs232ctl'; COMP_WORDS=(" + line +
      "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _rs232ctl; printf '%s\\n' \"${COMPREPLY[@]}\"";
  setenv("CTL_SCRIPT", script.c_str(), 1);
  FILE* bash = popen(R"(bash --norc -c "$CTL_SCRIPT" 2>&1)", "r");
  EXPECT_NE(bash, nullptr);
  std::string text;
  std::array<char, 256> piece;
  while (fgets(piece.data(), piece.size(), bash) != nullptr)
    text += piece.data();
  EXPECT_EQ(pclose(bash), 0) << text;
  std::istringstream words(text);
  return {std::istream_iterator<std::string>(words), {}};
}

Words Commands(const CLI::App& app) {
  Words names;
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; }))
    names.insert(command->get_name());
  return names;
}

Words Options(const CLI::App& app) {
  Words names;
  for (const CLI::Option* option : app.get_options()) {
    for (const std::string& name : option->get_lnames())
      names.insert("--" + name);
  }
  return names;
}

Words CommandsAndOptions(const CLI::App& app) {
  Words names = Commands(app);
  names.merge(Options(app));
  return names;
}

TEST(CtlVerbs, CompletionOffersWhatTheToolHas) {
  CLI::App app;
  tools::AddPtzCommand(&app);
  const CLI::App* ptz = app.get_subcommand("ptz");
  EXPECT_EQ(Completions("rs232ctl ptz ''"), CommandsAndOptions(*ptz));
  for (const CLI::App* verb : ptz->get_subcommands([](const CLI::App*) { return true; })) {
    EXPECT_EQ(Completions("rs232ctl ptz " + verb->get_name() + " ''"), CommandsAndOptions(*verb))
        << verb->get_name();
  }
  Words parameters = {"--file", "--help"};
  for (const tools::ParamField& field : tools::ParamFields()) {
    parameters.insert(std::string(field.name) + "=");
    if (field.values.empty() && field.words.empty()) continue;
    Words values;
    for (const int32_t value : field.values)
      values.insert(std::to_string(value));
    for (const tools::ParamWord& word : field.words)
      values.insert(word.word);
    EXPECT_EQ(Completions(std::string("rs232ctl params set ") + field.name + " = ''"), values);
  }
  EXPECT_EQ(Completions("rs232ctl params set ''"), parameters);
}

TEST(CtlVerbs, CompletionOfCommandsOptionsAndFiles) {
  const std::string source = RS232_SOURCE_DIR;
  const std::pair<std::string, Words> rows[] = {
      {"rs232ctl pa", {"params"}},
      {"rs232ctl ptz pan-left --for ''", {}},
      {"rs232ctl params set parity = e", {"even"}},
      {"rs232ctl firmware-update " + source + "/READ", {source + "/README.md"}},
      {"rs232ctl lens fit --name " + source + "/READ", {}},
      {"rs232ctl lens fit --out " + source + "/READ", {source + "/README.md"}},
  };
  for (const auto& [line, words] : rows)
    EXPECT_EQ(Completions(line), words) << line;
}

// The commands that have no commands of their own, by their words; the verbs left out.
std::map<std::string, const CLI::App*> Leaves(const CLI::App& app) {
  std::map<std::string, const CLI::App*> leaves;
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
    const bool is_leaf = Commands(*command).empty() || command->get_name() == "ptz";
    if (is_leaf) leaves[command->get_name()] = command;
    if (is_leaf) continue;
    for (const auto& [name, leaf] : Leaves(*command))
      leaves[command->get_name() + " " + name] = leaf;
  }
  return leaves;
}

std::string Manual() {
  std::string manual = sim::ReadTextFile(RS232_SOURCE_DIR "/tools/man/rs232ctl.1");
  std::erase(manual, '\\');
  return manual;
}

TEST(CtlVerbs, CompletionAndManualHaveEveryOption) {
  CLI::App app;
  for (const auto add :
       {tools::AddPtzCommand, tools::AddWriteCommand, tools::AddMonitorCommand,
        tools::AddFramesCommand, tools::AddInfoCommand, tools::AddParamsCommand,
        tools::AddFirmwareUpdateCommand, tools::AddLensCommand, tools::AddStopCommand})
    add(&app);
  const std::string manual = Manual();
  for (const auto& [name, command] : Leaves(app)) {
    SCOPED_TRACE(name);
    EXPECT_EQ(Completions("rs232ctl " + name + " --"), Options(*command));
    const size_t begin = manual.find("\n.SS " + name);
    ASSERT_NE(begin, std::string::npos);
    const std::string section = manual.substr(begin, manual.find("\n.S", begin + 1) - begin);
    for (const std::string& option : Options(*command)) {
      EXPECT_TRUE(option == "--help" || section.find(option) != std::string::npos) << option;
    }
  }
}

TEST(CtlVerbs, ManualTellsOfEveryVerb) {
  const std::string manual = Manual();
  for (const PtzVerb& verb : tools::PtzVerbs())
    EXPECT_NE(manual.find(std::string("\n") + verb.name), std::string::npos) << verb.name;
  for (const tools::ParamField& field : tools::ParamFields()) {
    EXPECT_NE(manual.find(std::string("\n") + field.name + "|" + AllowedText(field)),
              std::string::npos)
        << field.name;
  }
}

}  // namespace
