// `notifypi host`: its options and its exit status.
#pragma once

namespace CLI {
class App;
}

namespace tvx::tool {

// Adds the subcommand. When it is parsed and run, exitCode gets 0 (done) or 1 (a fault was found);
// wrong use is thrown as CLI::Error.
void AddHostCommand(CLI::App& command, int& exitCode);

}  // namespace tvx::tool
