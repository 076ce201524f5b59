#include "commands/commands.h"
namespace lumivert::tool {
Command add_compare(CLI::App&) {
    return [] { return 0; };
}
} // namespace lumivert::tool
