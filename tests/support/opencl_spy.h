/// Sees every OpenCL call of the library: records it and, on demand, fails it without passing it on.
///
/// The spy's definitions stand in the test program itself, so they are found before the platform's and the driver's.
#pragma once

#include <string>
#include <vector>

#include <CL/cl.h>

namespace spy {

struct Call {
    std::string name;
    std::string detail; ///< "index size" of an argument, "kernel WxH" of a launch, "NAME" of a kernel, and so on
};

/// Calls since `reset`, in order.
const std::vector<Call>& calls();

/// The calls among these functions, as "name" or "name detail", in order.
std::vector<std::string> calls_of(const std::vector<std::string>& names);
int count(const std::string& name);

/// Forgets calls and injected failures.
void reset();

/// Fails calls number `first` to `first` + `times` - 1 (from 1, counted from now) of a function; "" stands for any.
void fail(const std::string& name, cl_int code, int first = 1, int times = 1);

/// Answers the next programs from a binary with this per-device status, and build status queries with that one; 0 and
/// 1 leave the driver's answers.
void answer_binary_status(cl_int status);
void answer_build_status(cl_build_status status);

} // namespace spy
