/// Construction and teardown of the engine, its work buffers, and queries to the device.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <numeric>

#include <android-base/properties.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "hdr10plus/default_metadata.h"
#include "platform/paths.h"
#include "util/formatter.h"

namespace lumivert {
namespace {

constexpr unsigned long kIonIocFree = 0xC0044901; // ION_IOC_FREE of the ION driver: _IOWR('I', 1, int32_t)

constexpr std::size_t kTextBytes = 1024;

void log_errno(const char* function, int tag) {
    log_error("[%s] error is %s line is %d", function, std::strerror(errno), tag);
}

uint64_t round_up(uint64_t value, uint64_t step) {
    return (value + step - 1) / step * step;
}

} // namespace

std::string media_path(const std::string& file_name) {
    return platform::resolve_path("/data/vendor/media/" + file_name);
}

Formatter::Formatter(unsigned int width, unsigned int height, _ALGO_t mode)
    : mWidth(width), mHeight(height), mAlgoMode(mode) {
    const auto report = [](cl_int error, int tag) {
        if (error != CL_SUCCESS) log_error("[%s] failed ! error , Line number is %d ", "Formatter", tag);
    };

    cl_platform_id platform = nullptr;
    report(clGetPlatformIDs(1, &platform, nullptr), 67);
    report(clGetDeviceIDs(platform, CL_DEVICE_TYPE_GPU, 1, &mDevice, nullptr), 68);
    cl_int error = CL_SUCCESS;
    mContext = clCreateContext(nullptr, 1, &mDevice, nullptr, nullptr, &error);
    report(error, 70);
    mQueue = clCreateCommandQueue(mContext, mDevice, CL_QUEUE_PROFILING_ENABLE, &error);
    report(error, 72);

    mIonFd = open("/dev/ion", O_RDONLY);
    if (mIonFd < 0) log_error("[%s] error %d", __func__, 85);

    mKernels = std::make_shared<std::unordered_map<std::string, cl_kernel>>();
    mImagePair0 = {std::make_shared<ImportedBuffers>(), std::make_shared<ImportedBuffers>()};
    mImagePair1 = {std::make_shared<ImportedBuffers>(), std::make_shared<ImportedBuffers>()};
    mProgram = std::make_unique<cl_program>(nullptr);

    const std::string build_number_string = android::base::GetProperty("ro.build.fingerprint", "");
    mAPSoftwareVersion = getAPSoftwareVersion(build_number_string);
    log_info("[%s] buildNumberString = %s mAPSoftwareVersion = %s", __func__, build_number_string.c_str(),
             mAPSoftwareVersion.c_str());
}

bool Formatter::make_work_buffers(const char* function) {
    cl_int error = CL_SUCCESS;
    mWorkMem2 = clCreateBuffer(mContext, CL_MEM_READ_WRITE, 256 * sizeof(float), nullptr, &error);
    if (error != CL_SUCCESS) {
        report_failure(function, error, 504);
        if (log_enabled(kErrorBit)) log_error("[%s] failed! err num is %d", function, 506);
        return false;
    }

    // The kernels write whole blocks of 4 x 2 pixels, so the memory covers whole blocks. The imported size below is
    // that of the pixels alone.
    const uint64_t block_bytes = round_up(mWidth, 4) * round_up(mHeight, 2) * 4;
    const auto host_bytes = static_cast<std::size_t>(round_up(block_bytes, kImportAlignment));
    if (posix_memalign(&mWorkHost0, kImportAlignment, host_bytes) != 0) {
        log_error("[%s] failed LINE number is %d !", function, 511);
    }
    if (posix_memalign(&mWorkHost1, kImportAlignment, host_bytes) != 0) {
        log_error("[%s] failed LINE number is %d !", function, 514);
    }
    if (mWorkHost0 == nullptr || mWorkHost1 == nullptr) {
        log_error("[%s] failed %d", function, 518);
        return false;
    }
    // A failed import does not refuse the instance: the launches that need the buffer fail and are logged.
    const unsigned int size = round_up_for_import(mWidth * mHeight * 4);
    mWorkMem0 = import_buffer(mContext, mWorkHost0, size, CL_MEM_READ_WRITE);
    target_rgba_buffer = import_buffer(mContext, mWorkHost1, size, CL_MEM_READ_WRITE);
    mDynamicInfo = std::make_shared<HDR10PLUS_DYNAMIC_INFO>();
    return true;
}

bool Formatter::frame_fits() const {
    const auto rows = round_up(mHeight, 2);
    return rows == 0 || round_up(mWidth, 4) <= kMostPixels / rows;
}

Formatter::~Formatter() {
    log_info("~Formatter() vendor entry");

    for (auto& [start, length] : mMappings) {
        if (munmap(start, length) != 0) log_errno(__func__, 113);
        start = nullptr;
    }
    for (const int fd : mFds) {
        if (close(fd) != 0) log_errno(__func__, 122);
    }
    for (int32_t handle : mIonHandles) {
        if (ioctl(mIonFd, kIonIocFree, &handle) != 0) log_errno(__func__, 137);
    }
    if (close(mIonFd) != 0) log_errno(__func__, 143); // if it was never open, this line says so

    for (const auto& entry : *mKernels) {
        checked(__func__, 149, [kernel = entry.second] { return clReleaseKernel(kernel); });
    }
    mKernels->clear();

    delete_pair_images(mImagePair0);
    delete_pair_images(mImagePair1);
    std::free(mWorkHost0);
    std::free(mWorkHost1);

    if (!mFrameTimes.empty()) {
        const double sum = std::accumulate(mFrameTimes.begin(), mFrameTimes.end(), 0.0);
        log_info("framecount is %d", static_cast<int>(mFrameTimes.size()));
        // The value is the mean although the line says total. Log readers expect this wording.
        log_info("stat info total converting time is %f ms", sum / static_cast<double>(mFrameTimes.size()));
    }

    // After a retained RGBA frame, target_rgba_buffer is an object that the registry released above. The query of its
    // reference count then fails, so it is not released twice.
    delete_mem_object(mWorkMem2);
    delete_mem_object(mWorkMem0);
    delete_mem_object(target_rgba_buffer);
    if (mSampler != nullptr) checked(__func__, 170, [this] { return clReleaseSampler(mSampler); });
    checked(__func__, 172, [this] { return clReleaseProgram(*mProgram); });
    checked(__func__, 174, [this] { return clReleaseCommandQueue(mQueue); });
    checked(__func__, 175, [this] { return clReleaseContext(mContext); });
    checked(__func__, 176, [this] { return clReleaseDevice(mDevice); });

    log_info("~Formatter() exit");
}

std::string Formatter::getDeviceInfoProp(unsigned int param) const {
    char text[kTextBytes] = {};
    std::size_t size = 0;
    // The driver gets 16 bytes fewer than there are, so the text always ends inside the buffer.
    if (clGetDeviceInfo(mDevice, param, sizeof(text) - 16, text, &size) != CL_SUCCESS || size >= sizeof(text))
        return {};
    return text;
}

std::string Formatter::init_extension_string(cl_device_id device) const {
    char text[kTextBytes] = {};
    clGetDeviceInfo(device, CL_DEVICE_EXTENSIONS, sizeof(text), text, nullptr);
    return {text, strnlen(text, sizeof(text))};
}

bool Formatter::check_extension_support(const std::string& name) const {
    const std::string extensions = init_extension_string(mDevice);
    if (extensions.empty()) {
        log_error("[%s] error %d", __func__, 741);
        return false;
    }
    return extensions.find(name) != std::string::npos;
}

bool Formatter::supportedFormat(int format, int direction) {
    return format >= P010_LINEAR && format <= (direction == 0 ? NV12 : RGBA);
}

void Formatter::parse_default_dynamic(float first, float second, HDR10PLUS_DYNAMIC_INFO* info) {
    default_metadata(first, second, info);
}

} // namespace lumivert
