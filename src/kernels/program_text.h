/// The OpenCL C program that does all of the library's GPU work, as text.
///
/// Concatenated, the pieces are one translation unit with all kernels. Each piece ends with a newline and a NUL, so the
/// array can be passed to `clCreateProgramWithSource` as it is:
///
///     clCreateProgramWithSource(context, lumivert::kProgramPieceCount,
///                               const_cast<const char**>(lumivert::kProgramPieces), nullptr, &error);
///
/// The program is OpenCL C 1.2 and is built with "-cl-fast-relaxed-math". Its source is the .cl and .inc files beside
/// this header; `assemble.py` cuts it into pieces.
#pragma once

namespace lumivert {

inline constexpr unsigned kProgramPieceCount = 192;
extern const char* const kProgramPieces[kProgramPieceCount];

} // namespace lumivert
