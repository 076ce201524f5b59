/// The OpenCL C program that does all of the library's GPU work, as text.
///
/// The pieces, put one after the other, are one translation unit with ten kernels; each is NUL-terminated and ends with
/// a newline. They serve `clCreateProgramWithSource` as they are:
///
///     clCreateProgramWithSource(context, lumivert::kProgramPieceCount,
///                               const_cast<const char**>(lumivert::kProgramPieces), nullptr, &error);
///
/// The text is for the build option "-cl-fast-relaxed-math". It lives in the .cl files beside this header;
/// `assemble.py` cuts it.
#pragma once

namespace lumivert {

inline constexpr unsigned kProgramPieceCount = 192;
extern const char* const kProgramPieces[kProgramPieceCount];

} // namespace lumivert
