/// A conversion on its stage: the instance, the planes, and what must come out of them.
#pragma once

#include <memory>
#include <string>

#include "cases.h"
#include "reference/frames.h"

namespace lumivert::check {

class Instance {
public:
    Instance(Size size, _ALGO_t mode, bool codec2)
        : result_(CL_HDR2SDR_ARM_init(static_cast<uint32_t>(size.width), static_cast<uint32_t>(size.height), mode,
                                      &handle_, codec2 ? 1 : 0)) {}
    ~Instance() {
        if (handle_ != nullptr) CL_HDR2SDR_ARM_deinit(handle_);
    }
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;

    bool ready() const { return result_ == 1 && handle_ != nullptr; }
    int result() const { return result_; }
    void* handle() const { return handle_; }

private:
    void* handle_ = nullptr;
    int result_;
};

/// One conversion again and again.
class Stage {
public:
    /// With an instance of its own, or on the instance of `shared`.
    Stage(const Conversion& conversion, Size size, PlaneSource source, const Stage* shared = nullptr);

    /// Empty, or why the stage cannot be used.
    std::string trouble() const;

    /// Puts the seed's frame into the input, fills the output, converts, and returns what the library returned.
    int convert(uint32_t seed, int interval = 0);
    /// Converts what is in the planes.
    int convert_again(int interval = 0);
    /// Compares the planes with the reference or, if not `converted`, with what they held before.
    reference::Comparison compare(bool converted = true) const;
    /// Compares RGBA output with that of another frame.
    reference::Comparison compare_rgba_of(const reference::P010& frame) const;

    const reference::P010& frame() const { return frame_; }

private:
    bool in_place() const { return conversion_.mode == HI_JACK && !conversion_.pool; }

    Conversion conversion_;
    Size size_;
    Planes in_, out_;
    std::shared_ptr<const Instance> instance_;
    reference::P010 frame_;
};

} // namespace lumivert::check
