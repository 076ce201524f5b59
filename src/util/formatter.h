/// The engine: everything that one converter instance holds of OpenCL and of the operating system.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include <CL/cl.h>

#include "lumivert/converter.h"
#include "util/diagnostics.h"

namespace lumivert {

/// The path of a file in the folder of the program cache and the debug dumps, on the device's data partition.
std::string media_path(const std::string& file_name);

/// Sizes are rounded up to a multiple of this for import, and host memory for import is aligned to it.
inline constexpr unsigned int kImportAlignment = 128;

constexpr unsigned int round_up_for_import(unsigned int bytes) {
    return (bytes + kImportAlignment - 1) & ~(kImportAlignment - 1);
}

/// The most pixels, counted in whole blocks of 4 x 2, whose size in RGBA bytes does not wrap at 32 bits when it is
/// rounded up for import.
inline constexpr uint64_t kMostPixels = (uint64_t{UINT32_MAX} + 1 - kImportAlignment) / 4;

/// The key of an imported plane. Planes are recognised by the descriptor alone: keys with the same handle are equal
/// whatever their sizes. While the instance lives, a descriptor must therefore keep naming the same buffer.
class exported_memory {
public:
    exported_memory(int32_t handle, uint32_t size) : m_handle_(handle), m_size_(size) {}

    int32_t get_handle() const { return m_handle_; }
    uint32_t get_size() const { return m_size_; } ///< in bytes, as the caller gave it

    friend bool operator<(const exported_memory& a, const exported_memory& b) { return a.m_handle_ < b.m_handle_; }

private:
    int32_t m_handle_;
    uint32_t m_size_;
};

/// Imported planes by descriptor. Entries are never evicted: the map grows with every descriptor that is new to it.
using ImportedBuffers = std::map<exported_memory, cl_mem>;
using ImportedBuffersPair = std::pair<std::shared_ptr<ImportedBuffers>, std::shared_ptr<ImportedBuffers>>;

/// One converter instance. The OpenCL handles are raw, and the destructor releases them one by one, because the order
/// and number of OpenCL calls are part of the library's behaviour: do not wrap them. Members are public: the entry
/// points and the conversion paths use them directly. Use it from one thread at a time.
class Formatter {
public:
    /// Opens the platform, device, context, queue and "/dev/ion", and reads the build fingerprint. Never fails: what
    /// cannot be opened is logged and stays null, and the program build fails later.
    Formatter(unsigned int width, unsigned int height, _ALGO_t mode);

    /// Releases everything in a fixed order. Failures are logged and do not stop it.
    ~Formatter();

    Formatter(const Formatter&) = delete;
    Formatter& operator=(const Formatter&) = delete;

    /// Allocates the gain table, the work buffers and the default record of mode `NORMAL`; the destructor releases
    /// them. Failures are logged as those of `function`. False if memory is missing; a failed import is not a reason.
    bool make_work_buffers(const char* function);
    /// Whether frames of this size have at most `kMostPixels`. Larger ones are never launched.
    bool frame_fits() const;

    // ---- device -------------------------------------------------------------------------------------------------

    /// A text property of the device, such as `CL_DEVICE_NAME`. Empty if it has 1008 bytes or more, or on failure.
    std::string getDeviceInfoProp(unsigned int param) const;
    /// The extension list of a device; empty if it has more than 1024 bytes, or on failure.
    std::string init_extension_string(cl_device_id device) const;
    /// Whether `name` occurs in the device's extension list, as a name or as a part of one.
    bool check_extension_support(const std::string& name) const;
    /// Whether a `_Image_ColorFormat` is accepted as input (`direction` 0) or as output (any other direction).
    static bool supportedFormat(int format, int direction);

    // ---- program and kernels ------------------------------------------------------------------------------------

    /// The build identifier in a build fingerprint: the first run of characters without a slash that ":user" or ":eng"
    /// follows, as long as it can be; empty if there is none.
    static std::string getAPSoftwareVersion(const std::string& fingerprint);
    /// Builds `mProgram` from the cached binary; without one for this system build, from source, and writes the cache.
    /// Returns an OpenCL status. A failed build is only logged; creating kernels fails later.
    int compileprogram();
    /// Creates and builds the program from source. A failed build is not reported here: the caller's final build of the
    /// same program does that.
    void makeProgram();
    /// Creates the program from the first `size` bytes of a cache file; does not build it. Ends the process if the file
    /// cannot be read or the driver refuses it.
    int fetchProgram(int& binary_status, const std::string& path, std::size_t size);
    /// Writes the binary of `mProgram` for this device to a file. True also if there is none for this device; false if
    /// the driver does not provide one. Ends the process if the file cannot be written, and leaves no part of it
    /// behind.
    bool storeProgram(const std::string& path);
    /// Finds the name of the first cache file, of any system build, in the media folder. False if there is none.
    static bool getExistedFileName(std::string& file_name);
    /// Removes a file if it exists.
    static void removeBuiltBinary(const std::string& path);
    /// Replaces the program by a new build from source and stores its binary. False if that could not be obtained.
    bool tryRecompileIfRequired(const std::string& path);
    /// Creates a kernel and keeps it under its name. If that fails, rebuilds program and cache once; ends the process
    /// if it fails again.
    void make_kernel(const std::string& name);
    /// A kernel that `make_kernel` created; null, with a line in the log, if there is none of that name.
    cl_kernel find_kernel(const std::string& name) const;

    // ---- buffers ------------------------------------------------------------------------------------------------

    /// Imports host memory, which must be aligned to `kImportAlignment`. The caller releases the object; null on
    /// failure.
    cl_mem import_buffer(cl_context context, void* host_ptr, unsigned int size, unsigned long long flags);
    /// Imports a dma-buf. The descriptor stays the caller's, and the caller releases the object; null on failure.
    cl_mem import_buffer(cl_context context, int fd, unsigned int size, unsigned long long flags);
    /// The object registered for the key's descriptor; imports and registers it first if there is none. The registry
    /// owns it. If the import fails, returns null and registers nothing.
    cl_mem find_imported_buffer(std::shared_ptr<ImportedBuffers>& map, const std::shared_ptr<exported_memory>& key);
    /// Creates a 2D image over a buffer, with 16 bits per channel if `data_type_selector` is 2, otherwise 8. Rows of
    /// RGBA are padded to a multiple of `pitch_alignment` pixels, a power of two; the driver chooses the pitch of other
    /// orders. The caller releases the image; null on failure.
    cl_mem create_image_from_buffer(cl_context context, cl_mem buffer, unsigned int height, unsigned int width,
                                    unsigned long long flags, unsigned int channel_order, unsigned int pitch_alignment,
                                    unsigned int data_type_selector);
    /// Releases all objects of both maps and empties them.
    void delete_pair_images(ImportedBuffersPair& pair);
    /// Releases an object if it is alive (not null, reference count above 0). Failures are logged.
    void delete_mem_object(cl_mem mem);
    /// The same for the planes of a finished frame; here a failing release ends the process.
    void release_imported(cl_mem mem);

    // ---- metadata and dumps -------------------------------------------------------------------------------------

    /// Fills a record for a frame without metadata from two static luminances in cd/m2; see `default_metadata`.
    void parse_default_dynamic(float first, float second, HDR10PLUS_DYNAMIC_INFO* info);
    /// Writes the first 3 x `width` values of a buffer of `width` x `height` floats, or all if `height` is less than 3,
    /// as text to ocl.txt in the media folder.
    void dump_ocl(cl_mem buffer, int width, int height);
    /// Appends a frame's planes to a file in the media folder, without row padding. Format -1 appends the `size` bytes
    /// at `plane0`'s host address instead. The planes are the caller's.
    void filewrite(_Image_ColorFormat format, int width, int height, const _MULTIPLANE_t* plane0,
                   const _MULTIPLANE_t* plane1, const std::unique_ptr<std::string>& file_name);

    // ---- members, destroyed in reverse order --------------------------------------------------------------------

    cl_mem mWorkMem0 = nullptr;          ///< intermediate RGBA of the fused kernel
    cl_mem target_rgba_buffer = nullptr; ///< tone-mapped RGBA: the second work buffer, or a caller's RGBA output
    cl_mem mWorkMem2 = nullptr;          ///< gain table, 256 floats
    void* mWorkHost0 = nullptr;          ///< host memory behind `mWorkMem0`
    void* mWorkHost1 = nullptr;          ///< host memory behind the second work buffer
    std::vector<double> mFrameTimes;     ///< milliseconds per conversion, collected at `debug_level` 2 or more
    std::shared_ptr<HDR10PLUS_DYNAMIC_INFO> mDynamicInfo; ///< default record for frames without metadata
    int64_t mFrameCount = -1;                             ///< number of the last convert1 call, counted from 0
    int32_t mTargetNits = 250;                            ///< target display peak in cd/m2, block-pool path
    std::string mAPSoftwareVersion;                       ///< build identifier, names the program cache
    cl_device_id mDevice = nullptr;
    cl_context mContext = nullptr;
    cl_command_queue mQueue = nullptr;
    std::unique_ptr<cl_program> mProgram; ///< the holder stays; the program in it is replaced
    std::shared_ptr<std::unordered_map<std::string, cl_kernel>> mKernels;
    cl_sampler mSampler = nullptr;
    uint32_t mWidth;
    uint32_t mHeight;
    _ALGO_t mAlgoMode;
    int32_t mState = 0;   ///< 0 constructed, 1 initialised, 2 has converted
    bool IsC2Base = true; ///< Codec2 component, else OpenMAX
    std::vector<int32_t> mIonHandles;
    std::vector<int> mFds;
    std::vector<std::pair<void*, std::size_t>> mMappings;
    int mIonFd = -1;
    ImportedBuffersPair mImagePair0; ///< map_y_in, map_uv_in
    ImportedBuffersPair mImagePair1; ///< map_y_out, map_uv_out
};

/// Prints the entries of a registry map.
void list_entries(const std::shared_ptr<ImportedBuffers>& map);

} // namespace lumivert
