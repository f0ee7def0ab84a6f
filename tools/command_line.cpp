#include "command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <sstream>
#include <stdexcept>
#include <type_traits>

#include "text/printable.h"
#include "text/spelling.h"

namespace tvx::tool {
namespace {

constexpr int kUsedWrongly = 2;

std::string OutOf(const Range& range, const std::string& text) {
  double value = 0;
  if (CLI::detail::lexical_cast(text, value) && value >= range.from && value <= range.to) return {};
  std::ostringstream fault;
  fault << '"' << text << "\" is no number from " << range.from;
  if (range.to < Range{0}.to) {
    fault << " to " << range.to;
  } else {
    fault << " up";
  }
  return fault.str();
}

// Without a description of its own, which help would show beside the name of the value.
CLI::Validator ValidatorOf(const Check& check) {
  CLI::Validator validator;
  if (std::holds_alternative<ExistingFile>(check)) validator = CLI::ExistingFile;
  if (std::holds_alternative<ExistingFolder>(check)) validator = CLI::ExistingDirectory;
  if (const auto* words = std::get_if<OneOf>(&check)) validator = CLI::IsMember(*words);
  if (const auto* range = std::get_if<Range>(&check)) {
    validator.operation([range = *range](std::string& text) { return OutOf(range, text); });
  }
  return validator.description("");
}

template <typename T>
CLI::Option* Add(CLI::App& app, const Option& option, std::vector<T>& target) {
  return app.add_option(option.name, target, option.help)
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

template <typename T>
CLI::Option* Add(CLI::App& app, const Option& option, std::optional<T>& target) {
  const auto store = [&target](const T& value) { target = value; };
  return app.add_option_function<T>(option.name, store, option.help);
}

template <typename T>
CLI::Option* Add(CLI::App& app, const Option& option, T& target) {
  if constexpr (std::is_same_v<T, bool>) return app.add_flag(option.name, target, option.help);
  return app.add_option(option.name, target, option.help);
}

void AddOption(CLI::App& app, const Option& option) {
  CLI::Option* added =
      std::visit([&](auto* target) { return Add(app, option, *target); }, option.target);
  if (!std::holds_alternative<bool*>(option.target)) {
    added->check(ValidatorOf(option.check))->type_name(option.value);
  }
  if (option.value[0] == '[') added->expected(0, 1);
  if (option.name[0] != '-') added->required();
}

// A list of commands has only the first line of each description.
void AddCommand(CLI::App& program, const Command& command, bool isForList, int& exitStatus) {
  const std::size_t length = isForList ? command.description.find('\n') : std::string::npos;
  CLI::App* app = program.add_subcommand(command.name, command.description.substr(0, length));
  app->footer(command.footer);
  for (const Option& option : command.options) AddOption(*app, option);
  for (const Option& option : command.options) {
    CLI::Option* added = app->get_option(option.name);
    for (const std::string& other : option.excludes) added->excludes(app->get_option(other));
    for (const std::string& other : option.needs) added->needs(app->get_option(other));
  }
  app->callback([&command, &exitStatus] {
    try {
      exitStatus = command.run();
    } catch (const std::runtime_error& error) {
      throw CLI::ValidationError(error.what());
    }
  });
}

}  // namespace

int RunCommand(const CommandLine& program, int argc, char** argv) {
  int exitStatus = 0;
  CLI::App app(program.description, program.name);
  app.set_version_flag("--version", program.name + " " + program.version,
                       "Print the version and exit");
  const std::string first = argc < 2 ? "-" : argv[1];
  const bool isForList = first.rfind('-', 0) == 0;
  std::vector<std::string> names;
  for (const Command& command : program.commands) {
    AddCommand(app, command, isForList, exitStatus);
    names.push_back(command.name);
  }
  if (argc < 2) {
    std::fputs(app.help().c_str(), stdout);
    return exitStatus;
  }
  if (!isForList && std::count(names.begin(), names.end(), first) == 0) {
    const std::string nearest = NearestName(first, names);
    std::fprintf(stderr, "there is no subcommand \"%s\"%s\nRun with --help for more information.\n",
                 Printable(first).c_str(),
                 nearest.empty() ? "" : ("; did you mean \"" + nearest + "\"?").c_str());
    return kUsedWrongly;
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& help) {
    return app.exit(help);
  } catch (const CLI::ParseError& error) {
    std::ostringstream text;
    app.exit(error, text, text);
    // It quotes words of the command line and of files.
    std::istringstream lines(text.str());
    for (std::string line; std::getline(lines, line);) {
      std::fprintf(stderr, "%s\n", Printable(line).c_str());
    }
    return kUsedWrongly;
  }
  return exitStatus;
}

}  // namespace tvx::tool
