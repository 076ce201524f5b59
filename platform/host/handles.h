/// Which OpenCL objects are alive, by the application's own reference counts.
///
/// Given a null or released handle, the device's driver returns an error code; drivers of workstations dereference the
/// pointer. This library therefore records every object that is created through it and passes on only calls whose
/// handles are alive. Objects from functions that are not intercepted (the converter uses none) count as released.
#pragma once

#include <cstdint>
#include <mutex>
#include <type_traits>
#include <unordered_map>

#include <CL/cl.h>

namespace lumivert::platform {

/// The error code for an invalid handle of type T; CL_SUCCESS for types that are not checked.
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

/// The live objects of one type. May be used from any thread.
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

    /// Removes one reference, and with the last one the object. Call this before the driver's release: after that,
    /// another thread may be given a new object at the same address.
    bool release(Handle handle) {
        const std::lock_guard lock(mutex_);
        const auto object = objects_.find(handle);
        if (object == objects_.end()) return false;
        if (--object->second.references == 0) objects_.erase(object);
        return true;
    }

    /// A number that identifies the object among all that were ever added; 0 for a null or released handle.
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

/// The table of all objects of a type. Never destroyed, because objects are still released while the process exits.
template <typename Handle>
LiveHandles<Handle>& live() {
    static auto& handles = *new LiveHandles<Handle>;
    return handles;
}

/// CL_SUCCESS, or the error code for an argument that is not a live object. Arguments of other types always pass;
/// devices are queried rather than created, so they must only not be null.
template <typename T>
cl_int check(T argument) {
    if constexpr (kInvalidCode<T> == CL_SUCCESS)
        return CL_SUCCESS;
    else if constexpr (std::is_same_v<T, cl_device_id>)
        return argument ? CL_SUCCESS : kInvalidCode<T>;
    else
        return live<T>().serial(argument) ? CL_SUCCESS : kInvalidCode<T>;
}

/// The error code of the first argument that has one, otherwise CL_SUCCESS.
template <typename... Args>
cl_int check_all(Args... args) {
    cl_int status = CL_SUCCESS;
    (void)((status = check(args), status != CL_SUCCESS) || ...);
    return status;
}

/// Calls `driver(args...)` if all handles among the arguments are alive.
template <typename... Params, class... Args>
cl_int checked(cl_int (*driver)(Params...), Args... args) {
    const cl_int status = check_all(args...);
    return status ? status : driver(args...);
}

/// The same for a function that creates an object: records the object as alive. `errcode` may be null.
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
