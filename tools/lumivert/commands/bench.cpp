#include "commands/commands.h"
namespace lumivert::tool {
Command add_bench(CLI::App&) {
    return [] { return 0; };
}
} // namespace lumivert::tool
