// The subcommands of a program, described as tables: the one place that knows the parser of command
// lines, which takes long to compile.
// Threads: the main thread.
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace tvx::tool {

// What a value must be. A number is always checked to be one.
struct Anything {};
struct ExistingFile {};
struct ExistingFolder {};
struct Range {
  double from;
  double to = std::numeric_limits<double>::max();
};
using OneOf = std::vector<std::string>;
using Check = std::variant<Anything, ExistingFile, ExistingFolder, Range, OneOf>;

// Where the value goes, which stays as it is when the option is not given. bool is an option
// without value, a vector's may be repeated.
using Target = std::variant<bool*, int*, double*, std::string*, std::optional<std::int32_t>*,
                            std::optional<std::string>*, std::vector<std::string>*,
                            std::vector<std::uint32_t>*>;

struct Option {
  std::string name;  // as "--speed"; without dashes, a positional argument, which must be given
  Target target;
  std::string value;  // its name in the help; in brackets it may be left out, and is then empty
  std::string help;
  Check check = {};
  std::vector<std::string> excludes = {};  // these options
  std::vector<std::string> needs = {};
};

struct Command {
  std::string name;
  std::string description;
  std::string footer;
  // Their targets live at least as long as `run`, which may own them.
  std::vector<Option> options;
  // Returns the exit status. Throws std::runtime_error for wrong use.
  std::function<int()> run;
};

struct CommandLine {
  std::string name;
  std::string version;
  std::string description;
  std::vector<Command> commands;
};

// Runs the command that argv names, or prints help. Returns the exit status: 2 after wrong use, which
// is told on standard error.
int RunCommand(const CommandLine& program, int argc, char** argv);

}  // namespace tvx::tool
