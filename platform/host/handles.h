/// The live OpenCL objects, counted as the application counts its references.
///
/// The device's driver answers a call on a null or released handle with a code; the drivers of workstations follow the
/// pointer. This library therefore knows every object that was made through it, and lets only calls on live ones pass.
/// An object that some other call made (none that the converter uses) counts as released.
#pragma once

#include <cstdint>
#include <mutex>
#include <type_traits>
#include <unordered_map>

#include <CL/cl.h>

namespace lumivert::platform {

/// The error code for an invalid handle of each kind; CL_SUCCESS for kinds that are not checked.
template <typename T>
inline constexpr cl_int kInvalidCode = CL_SUCCESS;
template <>
inline constexpr cl_int kInvalidCode<cl_device_id> = CL_INVALID_DEVICE;
template <>
inline constexpr cl_int kInvalidCode<cl_context> = CL_INVALID_CONTEXT;
template <>
inline constexpr cl_int kInvalidCode<cl_command_queue> = CL_INVALID_COMMAND_QUEUE;
template <>
inline constexpr cl_int kInvalidCode<cl_mem> = CL_INVALID_MEM_OBJECT;
template <>
inline constexpr cl_int kInvalidCode<cl_sampler> = CL_INVALID_SAMPLER;
template <>
inline constexpr cl_int kInvalidCode<cl_program> = CL_INVALID_PROGRAM;
template <>
inline constexpr cl_int kInvalidCode<cl_kernel> = CL_INVALID_KERNEL;

/// The live objects of one kind. Any thread may call.
template <typename Handle>
class LiveHandles {
public:
    void add(Handle handle) {
        const std::lock_guard lock(mutex_);
        objects_[handle] = {1, ++last_serial_};
    }

    bool retain(Handle handle) {
        const std::lock_guard lock(mutex_);
        const auto object = objects_.find(handle);
        if (object == objects_.end()) return false;
        ++object->second.references;
        return true;
    }

    /// Takes one reference off; the object is forgotten with its last one. Comes before the driver's release, which
    /// may hand the same address out again at once.
    bool release(Handle handle) {
        const std::lock_guard lock(mutex_);
        const auto object = objects_.find(handle);
        if (object == objects_.end()) return false;
        if (--object->second.references == 0) objects_.erase(object);
        return true;
    }

    /// A number that no other object of this kind ever had; 0 for a null or released handle.
    uint64_t serial(Handle handle) const {
        const std::lock_guard lock(mutex_);
        const auto object = objects_.find(handle);
        return object == objects_.end() ? 0 : object->second.serial;
    }

private:
    struct Object {
        unsigned references;
        uint64_t serial;
    };

    mutable std::mutex mutex_;
    std::unordered_map<Handle, Object> objects_;
    uint64_t last_serial_ = 0;
};

/// The one table of a kind. Never destroyed: drivers still release objects while the process ends.
template <typename Handle>
LiveHandles<Handle>& live() {
    static auto& handles = *new LiveHandles<Handle>;
    return handles;
}

/// The code that a call with this argument deserves: of a checked kind, the kind's code unless it is live. Devices are
/// not made but found, so a device only must not be null.
template <typename T>
cl_int check(T argument) {
    if constexpr (kInvalidCode<T> == CL_SUCCESS)
        return CL_SUCCESS;
    else if constexpr (std::is_same_v<T, cl_device_id>)
        return argument ? CL_SUCCESS : kInvalidCode<T>;
    else
        return live<T>().serial(argument) ? CL_SUCCESS : kInvalidCode<T>;
}

/// The code of the first argument that has one.
template <typename... Args>
cl_int check_all(Args... args) {
    cl_int status = CL_SUCCESS;
    (void)((status = check(args), status != CL_SUCCESS) || ...);
    return status;
}

/// `driver(args...)` with its handles checked.
template <typename... Params, class... Args>
cl_int checked(cl_int (*driver)(Params...), Args... args) {
    const cl_int status = check_all(args...);
    return status ? status : driver(args...);
}

/// `driver(args..., errcode)` with its handles checked; what it makes is live from then on.
template <typename Handle, class... Params, class... Args>
Handle created(Handle (*driver)(Params...), cl_int* errcode, Args... args) {
    cl_int status = check_all(args...);
    Handle handle = status ? nullptr : driver(args..., &status);
    if (handle) live<Handle>().add(handle);
    if (errcode) *errcode = status;
    return handle;
}

template <typename Handle>
cl_int retained(cl_int (*driver)(Handle), Handle handle) {
    return live<Handle>().retain(handle) ? driver(handle) : kInvalidCode<Handle>;
}

template <typename Handle>
cl_int released(cl_int (*driver)(Handle), Handle handle) {
    return live<Handle>().release(handle) ? driver(handle) : kInvalidCode<Handle>;
}

} // namespace lumivert::platform
