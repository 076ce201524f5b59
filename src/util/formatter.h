/// The engine: everything one converter instance holds of OpenCL and of the operating system.
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

/// Directory of the program cache and of the debug dumps, on the device's data partition.
std::string media_path(const std::string& file_name);

/// Plane sizes are rounded up to this many bytes for import: a cache line of the device's GPU and CPU.
inline constexpr unsigned int kImportAlignment = 128;

constexpr unsigned int round_up_for_import(unsigned int bytes) {
    return (bytes + kImportAlignment - 1) & ~(kImportAlignment - 1);
}

/// The most pixels, counted in whole blocks of 4 x 2, whose size in RGBA bytes does not wrap at 32 bits when it is
/// rounded up for import.
inline constexpr uint64_t kMostPixels = (uint64_t{UINT32_MAX} + 1 - kImportAlignment) / 4;

/// Key of an imported plane. A plane is known by its descriptor alone: two keys with one handle are the same key
/// whatever their sizes, so a descriptor must go on naming one buffer while the instance lives.
class exported_memory {
public:
    exported_memory(int32_t handle, uint32_t size) : m_handle_(handle), m_size_(size) {}

    int32_t get_handle() const { return m_handle_; }
    uint32_t get_size() const { return m_size_; } ///< bytes, as the caller gave them

    friend bool operator<(const exported_memory& a, const exported_memory& b) { return a.m_handle_ < b.m_handle_; }

private:
    int32_t m_handle_;
    uint32_t m_size_;
};

/// Imported planes by descriptor. Entries are never evicted: there are as many as the instance has seen descriptors.
using ImportedBuffers = std::map<exported_memory, cl_mem>;
using ImportedBuffersPair = std::pair<std::shared_ptr<ImportedBuffers>, std::shared_ptr<ImportedBuffers>>;

/// One converter instance. Handles are raw and the destructor's order is written out, because order and number of the
/// OpenCL calls are part of what the library does; do not wrap them. Members are public: the entry points and the
/// conversion paths work on them directly. Used by one thread at a time.
class Formatter {
public:
    /// Opens platform, device, context, queue and "/dev/ion" and reads the build fingerprint. Never fails: what could
    /// not be opened is logged and stays null, and shows again when the program is built.
    Formatter(unsigned int width, unsigned int height, _ALGO_t mode);

    /// Gives everything back in a fixed order. Failures are logged and do not stop it.
    ~Formatter();

    Formatter(const Formatter&) = delete;
    Formatter& operator=(const Formatter&) = delete;

    /// Makes the gain table, the work buffers and the default record of mode `NORMAL`; the destructor releases them.
    /// Failures are logged in the name of `function`. False if the instance cannot work without what is missing.
    bool make_work_buffers(const char* function);
    /// Whether frames of this size have at most `kMostPixels`. Those that have more are never launched.
    bool frame_fits() const;

    // ---- device -------------------------------------------------------------------------------------------------

    /// A textual property of the device (`CL_DEVICE_NAME` and the like); empty for texts of 1008 bytes or more.
    std::string getDeviceInfoProp(unsigned int param) const;
    /// The extension list of a device, as far as it fits into 1024 bytes.
    std::string init_extension_string(cl_device_id device) const;
    /// Whether `name` occurs anywhere in the device's extension list, also inside a longer name.
    bool check_extension_support(const std::string& name) const;
    /// Whether a `_Image_ColorFormat` is accepted as input (`direction` 0) or as output (any other).
    static bool supportedFormat(int format, int direction);

    // ---- program and kernels ------------------------------------------------------------------------------------

    /// The build identifier in a build fingerprint: the first run without a slash that ":user" or ":eng" follows.
    static std::string getAPSoftwareVersion(const std::string& fingerprint);
    /// Makes `mProgram` ready from the cached binary, or from source where there is none for this build. Returns an
    /// OpenCL status; a program that fails to build is reported in the log only and shows when kernels are made.
    int compileprogram();
    /// Creates and builds the program from source. A failed build stays unreported here, on purpose.
    void makeProgram();
    /// Creates the program from the `size` bytes of a cache file. Ends the process if the file cannot be read or the
    /// driver refuses it.
    int fetchProgram(int& binary_status, const std::string& path, std::size_t size);
    /// Writes the binary of `mProgram` for this device to a file. True also when there is none to write; ends the
    /// process if the file cannot be written.
    bool storeProgram(const std::string& path);
    /// Finds the first cache file of any build in the media directory.
    static bool getExistedFileName(std::string& file_name);
    static void removeBuiltBinary(const std::string& path);
    /// Replaces the program by a fresh source build and stores its binary.
    bool tryRecompileIfRequired(const std::string& path);
    /// Creates a kernel and keeps it under its name; rebuilds program and cache once if that fails, and ends the
    /// process if it fails again.
    void make_kernel(const std::string& name);
    /// A kernel made before, or null with a line in the log.
    cl_kernel find_kernel(const std::string& name) const;

    // ---- buffers ------------------------------------------------------------------------------------------------

    /// Imports host memory, aligned to `kImportAlignment`. The object is the caller's; null on failure.
    cl_mem import_buffer(cl_context context, void* host_ptr, unsigned int size, unsigned long long flags);
    /// Imports a dma-buf. The descriptor stays the caller's, the object is the caller's; null on failure.
    cl_mem import_buffer(cl_context context, int fd, unsigned int size, unsigned long long flags);
    /// The object registered for the key's descriptor, imported and registered first where there is none. Owned by
    /// the registry; null (and nothing registered) when the import fails.
    cl_mem find_imported_buffer(std::shared_ptr<ImportedBuffers>& map, const std::shared_ptr<exported_memory>& key);
    /// A 2D image over a buffer, 8 bits per channel or 16 with `dataTypeSelector` 2. `pitchAlignment` is in pixels, a
    /// power of two, and counts for RGBA only. The image is the caller's; null on failure.
    cl_mem create_image_from_buffer(cl_context context, cl_mem buffer, unsigned int height, unsigned int width,
                                    unsigned long long flags, unsigned int channel_order, unsigned int pitch_alignment,
                                    unsigned int data_type_selector);
    /// Releases all objects of both maps and empties them.
    void delete_pair_images(ImportedBuffersPair& pair);
    /// Releases an object while it is alive, logging a failure.
    void delete_mem_object(cl_mem mem);
    /// The same for the planes of a finished frame, where a failing release ends the process.
    void release_imported(cl_mem mem);

    // ---- metadata and dumps -------------------------------------------------------------------------------------

    /// Fills a record for a frame without metadata from static luminances in cd/m2.
    void parse_default_dynamic(float first, float second, HDR10PLUS_DYNAMIC_INFO* info);
    /// Writes the first 3 x `width` values of a float buffer, or all where there are fewer, as text to ocl.txt in the
    /// media directory.
    void dump_ocl(cl_mem buffer, int width, int height);
    /// Appends a frame's planes to a file in the media directory. Format -1 writes `plane0` from its host address.
    void filewrite(_Image_ColorFormat format, int width, int height, const _MULTIPLANE_t* plane0,
                   const _MULTIPLANE_t* plane1, const std::unique_ptr<std::string>& file_name);

    // ---- members; destroyed in reverse order --------------------------------------------------------------------

    cl_mem mWorkMem0 = nullptr;          ///< intermediate RGBA of the fused kernel
    cl_mem target_rgba_buffer = nullptr; ///< tone-mapped RGBA: the second work buffer, or a caller's RGBA output
    cl_mem mWorkMem2 = nullptr;          ///< gain table, 256 floats
    void* mWorkHost0 = nullptr;          ///< host memory behind `mWorkMem0`
    void* mWorkHost1 = nullptr;          ///< host memory behind the second work buffer
    std::vector<double> mFrameTimes;     ///< milliseconds per conversion, collected at `debug_level` 2 or more
    std::shared_ptr<HDR10PLUS_DYNAMIC_INFO> mDynamicInfo; ///< default record for frames without metadata
    int64_t mFrameCount = -1;                             ///< number of the current convert1 call, from 0
    int32_t mTargetNits = 250;                            ///< target display peak in cd/m2, block-pool path
    std::string mAPSoftwareVersion;                       ///< build identifier, names the program cache
    cl_device_id mDevice = nullptr;
    cl_context mContext = nullptr;
    cl_command_queue mQueue = nullptr;
    std::unique_ptr<cl_program> mProgram; ///< the holder stays, the program in it is replaced
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
