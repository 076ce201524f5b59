/// The GPU program: build from source, binary cache on the data partition, kernel table.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>

#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "kernels/program_text.h"
#include "util/formatter.h"

using android::base::unique_fd;

namespace lumivert {
namespace {

constexpr const char* kStem = "cl_formatter_vendor";
constexpr const char* kBuildOptions = "-cl-fast-relaxed-math";
constexpr const char* kCachePrefix = "mali_formatter_";

// Upper limits far above real values: PoCL's binary of this program has 0.3 MiB, and an instance's program has one
// device. A larger size or count is treated like a file that cannot be read or a query that failed.
constexpr std::size_t kLargestBinary = std::size_t{64} << 20;
constexpr cl_uint kMostDevices = 64;

/// Zeroed memory for a program binary; null if there is not enough.
std::unique_ptr<unsigned char[]> binary_memory(std::size_t size) {
    return std::unique_ptr<unsigned char[]>(size <= kLargestBinary ? new (std::nothrow) unsigned char[size]()
                                                                   : nullptr);
}

/// Writes a binary to a file. A file that could only be written in part is removed, because the driver would refuse it
/// at every later init. False on failure.
bool write_binary(const std::string& path, const unsigned char* bytes, std::size_t size) {
    const unique_fd file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    if (file < 0) return false;
    if (android::base::WriteFully(file, bytes, size)) return true;
    struct stat status {};
    if (fstat(file, &status) == 0 && S_ISREG(status.st_mode)) unlink(path.c_str());
    return false;
}

std::string cache_file_name(const Formatter& formatter) {
    return kCachePrefix + std::string(formatter.IsC2Base ? "c2_" : "omx_") + formatter.mAPSoftwareVersion + ".bin";
}

cl_int build(cl_program program) {
    return clBuildProgram(program, 0, nullptr, kBuildOptions, nullptr, nullptr);
}

using BuildLog = char[2048 + 1]; // a driver may fill 2048 bytes without ending the text

cl_int read_build_log(cl_program program, cl_device_id device, BuildLog& log) {
    std::memset(log, 0, sizeof(log));
    return clGetProgramBuildInfo(program, device, CL_PROGRAM_BUILD_LOG, sizeof(log) - 1, log, nullptr);
}

void log_build_status(cl_build_status status) {
    static constexpr const char* kTexts[] = {
        "CL_BUILD_IN_PROGRESS : the last call to clBuildProgram on the specified program object for device has not "
        "finished. ",
        "CL_BUILD_ERROR : the last call to clBuildProgram on the specified program object for device generated an "
        "error ",
        "CL_BUILD_NONE : no build has been performed on the specified program object for device",
        "CL_BUILD_SUCCESS :the last call to clBuildProgram on the specified program object for device was successful. "
        " ",
    };
    if (status >= CL_BUILD_IN_PROGRESS && status <= CL_BUILD_SUCCESS) {
        log_info("%s", kTexts[status - CL_BUILD_IN_PROGRESS]);
    }
}

} // namespace

std::string Formatter::getAPSoftwareVersion(const std::string& fingerprint) {
    for (std::size_t start = 0; start < fingerprint.size();) {
        const std::size_t end = std::min(fingerprint.find('/', start), fingerprint.size());
        const std::string run = fingerprint.substr(start, end - start);
        std::size_t length = 0;
        for (const char* mark : {":user", ":eng"}) {
            if (const std::size_t last = run.rfind(mark); last != std::string::npos) length = std::max(length, last);
        }
        if (length > 0) return run.substr(0, length);
        start = end + 1;
    }
    return {};
}

int Formatter::compileprogram() {
    const std::string file_name = cache_file_name(*this);
    const std::string binary_path = media_path(file_name);
    log_info("CL_DEVICE_NAME is %s \n", getDeviceInfoProp(CL_DEVICE_NAME).c_str());
    log_info("Full device version is %s \n", getDeviceInfoProp(CL_DEVICE_VERSION).c_str());

    // A binary of another system build or for the other framework is of no use: replace it.
    std::string existed;
    if (!getExistedFileName(existed)) {
        log_info("Creating the new image");
        tryRecompileIfRequired(binary_path);
    } else {
        log_info("binaryFileNameExpected: %s binaryFileNameExisted = %s", file_name.c_str(), existed.c_str());
        if (existed != file_name) {
            log_info("Creating the new image after deleting the old image");
            removeBuiltBinary(media_path(existed));
            tryRecompileIfRequired(binary_path);
        }
    }

    // Even a binary that was just written is loaded from its file, so every start takes the same steps.
    log_info("It is running with final binaryPath is %s", binary_path.c_str());
    const unique_fd file(open(binary_path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file < 0) {
        log_info("data path open fail. It is trying to rebuild program");
        removeBuiltBinary(binary_path);
        tryRecompileIfRequired(binary_path);
    } else {
        log_info("data path open success");
        // A failed seek (-1), and a size that a 32-bit process cannot count, become the largest size.
        const auto end = static_cast<uint64_t>(lseek64(file, 0, SEEK_END));
        const auto size = static_cast<std::size_t>(std::min<uint64_t>(end, SIZE_MAX));
        log_info("[%s] size is %zu", __func__, size);
        int binary_status = CL_SUCCESS;
        const int error = fetchProgram(binary_status, binary_path, size);
        if (error != CL_SUCCESS) report_failure(__func__, error, 599);
        if (binary_status != CL_SUCCESS || error != CL_SUCCESS) {
            log_info("It trys to build the source in case of prebuilt binary is not compatible with current device");
            if (!tryRecompileIfRequired(binary_path)) return error;
        }
    }

    if (build(*mProgram) == CL_SUCCESS) return CL_SUCCESS;

    BuildLog text;
    checked(__func__, 619, [&] { return read_build_log(*mProgram, mDevice, text); });
    log_error("clGetProgramBuildInfo : %s", text);
    cl_build_status status = 1; // not a status: nothing is printed if the query fails
    cl_int error = CL_SUCCESS;
    checked(__func__, 622, [&] {
        return error =
                   clGetProgramBuildInfo(*mProgram, mDevice, CL_PROGRAM_BUILD_STATUS, sizeof(status), &status, nullptr);
    });
    log_build_status(status);
    checked(__func__, 628, [this] { return clReleaseProgram(*mProgram); });
    return error; // on purpose not the build's result: if the build failed, creating kernels fails
}

void Formatter::makeProgram() {
    log_info("#### Formatter::makeProgram entry");
    cl_int error = CL_SUCCESS;
    const cl_program program = clCreateProgramWithSource(mContext, kProgramPieceCount,
                                                         const_cast<const char**>(kProgramPieces), nullptr, &error);
    if (error != CL_SUCCESS) report_failure(__func__, error, 504);
    fatal_check(mProgram != nullptr, {kStem, 505}, "program.get() != nullptr");
    *mProgram = program;

    error = build(program);
    if (error == CL_SUCCESS) return;
    BuildLog text; // read but not printed: the caller builds this program again and reports
    read_build_log(program, mDevice, text);
    fatal_check(error != CL_SUCCESS, {kStem, 511},
                "error"); // never fires: a failed build is not reported here, on purpose
}

int Formatter::fetchProgram(int& binary_status, const std::string& path, std::size_t size) {
    log_info("[%s] sz is %zu path is %s", __func__, size, path.c_str());
    const std::unique_ptr<unsigned char[]> bytes = binary_memory(size);
    {
        const unique_fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
        const bool read = bytes != nullptr && file >= 0 && android::base::ReadFully(file, bytes.get(), size);
        fatal_check(read, {kStem, 412}, "temp.good()");
    }

    const unsigned char* binary = bytes.get();
    cl_int error = CL_SUCCESS;
    *mProgram = clCreateProgramWithBinary(mContext, 1, &mDevice, &size, &binary, &binary_status, &error);
    error |= clFinish(mQueue);
    fatal_check(error == CL_SUCCESS, {kStem, 416}, "error == CL_SUCCESS", "error == 0");
    return error;
}

bool Formatter::storeProgram(const std::string& path) {
    log_info("[%s] entry", __func__);
    const cl_program program = *mProgram;
    cl_uint count = 0;
    checked(__func__, 432,
            [&] { return clGetProgramInfo(program, CL_PROGRAM_NUM_DEVICES, sizeof(count), &count, nullptr); });

    if (count > kMostDevices) return false;

    // Arrays are never null, so the driver refuses a query for no devices instead of answering it.
    const auto devices = std::make_unique<cl_device_id[]>(count);
    if (clGetProgramInfo(program, CL_PROGRAM_DEVICES, count * sizeof(cl_device_id), devices.get(), nullptr) !=
        CL_SUCCESS) {
        return false;
    }
    const auto sizes = std::make_unique<std::size_t[]>(count);
    if (!checked(__func__, 445, [&] {
            return clGetProgramInfo(program, CL_PROGRAM_BINARY_SIZES, count * sizeof(std::size_t), sizes.get(),
                                    nullptr);
        })) {
        return false;
    }
    std::vector<std::unique_ptr<unsigned char[]>> binaries;
    std::vector<unsigned char*> pointers;
    for (cl_uint i = 0; i < count; ++i) {
        binaries.push_back(binary_memory(sizes[i]));
        if (binaries.back() == nullptr) return false;
        pointers.push_back(binaries.back().get());
    }
    if (clGetProgramInfo(program, CL_PROGRAM_BINARIES, count * sizeof(unsigned char*), pointers.data(), nullptr) !=
        CL_SUCCESS) {
        return false;
    }

    const auto own = static_cast<std::size_t>(std::find(devices.get(), devices.get() + count, mDevice) - devices.get());
    if (own == count) return true; // there is nothing to write

    log_info("path is %s ", path.c_str());
    fatal_check(write_binary(path, pointers[own], sizes[own]), {kStem, 482}, "stream.good()");
    return true;
}

bool Formatter::getExistedFileName(std::string& file_name) {
    DIR* directory = opendir(media_path("").c_str());
    if (directory == nullptr) {
        log_error("Can not open this folder");
        return false;
    }
    std::vector<std::string> names;
    while (const dirent* entry = readdir(directory))
        names.emplace_back(entry->d_name);
    closedir(directory);

    // Names that are shorter than the prefix count if they are a beginning of it.
    const auto found = std::find_if(names.begin(), names.end(), [](const std::string& name) {
        return std::strncmp(name.c_str(), kCachePrefix, std::min(name.size(), std::strlen(kCachePrefix))) == 0;
    });
    if (found == names.end()) return false;
    file_name = *found;
    log_info("We found fileName is %s", file_name.c_str());
    return true;
}

void Formatter::removeBuiltBinary(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return;
    log_info("File exist in %s", path.c_str());
    if (std::remove(path.c_str()) == 0) log_info("File was deleted successfully");
}

bool Formatter::tryRecompileIfRequired(const std::string& path) {
    log_info("%s", __func__);
    cl_uint references = 0;
    clGetProgramInfo(*mProgram, CL_PROGRAM_REFERENCE_COUNT, sizeof(references), &references, nullptr);
    if (references != 0) checked(__func__, 640, [this] { return clReleaseProgram(*mProgram); });
    makeProgram();
    if (storeProgram(path)) return true;
    if (log_enabled(kErrorBit)) log_error("Fail to write program bin. It just fall back");
    return false;
}

void Formatter::make_kernel(const std::string& name) {
    cl_int error = CL_SUCCESS;
    cl_kernel kernel = clCreateKernel(*mProgram, name.c_str(), &error);
    if (error != CL_SUCCESS) {
        log_error("[%s] error %d %s", __func__, 224, asString(error));
        log_info("It is trying to rebuild program and kernel");
        const std::string path = media_path(cache_file_name(*this));
        removeBuiltBinary(path);
        tryRecompileIfRequired(path);
        kernel = clCreateKernel(*mProgram, name.c_str(), &error);
        if (error != CL_SUCCESS) {
            log_error("Creating kernel failed. It is better to crash here");
            fatal_check(false, {kStem, 238}, "0");
        }
    }
    mKernels->emplace(name, kernel);
}

cl_kernel Formatter::find_kernel(const std::string& name) const {
    const auto found = mKernels->find(name);
    if (found != mKernels->end()) return found->second;
    log_error("It is not found among the compiled kernels! kernel_name is %s", name.c_str());
    return nullptr;
}

} // namespace lumivert
