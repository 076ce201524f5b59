#include <iostream>

#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "engine/environment.h"
#include "error.h"

namespace lumivert::tool {
namespace {

struct Options {
    std::string device;
    bool json = false;
};

const char* import_of(const Device& device) {
    return device.native_import ? "native" : "emulated";
}

int run(const Options& options) {
    const Environment environment(options.device);
    const auto is_used = [&](const Device& device) { return &device == &environment.device(); };
    if (options.json) {
        nlohmann::ordered_json list = nlohmann::ordered_json::array();
        for (const Device& device : environment.devices())
            list.push_back({{"number", device.number},
                            {"platform", device.platform},
                            {"name", device.name},
                            {"type", device.type},
                            {"version", device.version},
                            {"driver", device.driver},
                            {"buffer_import", import_of(device)},
                            {"used", is_used(device)}});
        std::cout << nlohmann::ordered_json{{"devices", list}}.dump(2) << '\n';
        return kDone;
    }
    for (const Device& device : environment.devices())
        std::cout << (is_used(device) ? "* " : "  ") << device.number << "  " << device.name << '\n'
                  << "       " << device.type << ", " << device.platform << ", " << device.version << ", driver "
                  << device.driver << '\n'
                  << "       buffer import " << import_of(device)
                  << (device.native_import ? " (the driver's)" : " (the host platform maps the memory)") << '\n';
    std::cout << "* is what convert and bench use; --device takes part of a number, platform or name.\n";
    return kDone;
}

} // namespace

Command add_devices(Arguments& arguments) {
    auto options = std::make_shared<Options>();
    arguments.add("--device", options->device, "part of a device's number, platform or name");
    arguments.add_flag("--json", options->json, "one JSON document");
    arguments.footer("Example:\n  lumivert devices");
    return [options] { return run(*options); };
}

} // namespace lumivert::tool
