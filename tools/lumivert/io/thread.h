/// Threads that report why they cannot start.
#pragma once

#include <string>
#include <system_error>
#include <thread>

#include "error.h"
#include "io/limits.h"

namespace lumivert::tool {

template <typename Work>
std::thread start_thread(Work work) {
    try {
        return std::thread(std::move(work));
    } catch (const std::system_error& error) {
        throw Error("cannot start a thread: " + error.code().message() + limits_note());
    }
}

} // namespace lumivert::tool
