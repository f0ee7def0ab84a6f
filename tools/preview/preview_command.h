// The subcommand "preview": a profile's message as an event would make it.
#pragma once

namespace CLI {
class App;
}

namespace tvx::tool {

// Adds the subcommand. When it runs, it sets exitCode; wrong use is thrown as CLI::ParseError.
void AddPreviewCommand(CLI::App& command, int& exitCode);

}  // namespace tvx::tool
