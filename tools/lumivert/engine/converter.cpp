#include "engine/converter.h"

#include <chrono>
#include <cmath>

#include "engine/library_log.h"
#include "engine/program_cache.h"
#include "error.h"

namespace lumivert::tool {
namespace {

uint32_t rounded(double value) {
    return static_cast<uint32_t>(std::lround(value));
}

} // namespace

Converter::Converter(const Geometry& geometry, Mode mode, Entry entry, const Environment& environment)
    : mode_(mode), entry_(entry), plane_source_(platform::best_source(environment.device().native_import)) {
    const bool codec2 = entry == Entry::kPool;
    ProgramCache cache(environment, codec2);
    const auto start = std::chrono::steady_clock::now();
    const int result = CL_HDR2SDR_ARM_init(geometry.pitch, geometry.height,
                                           mode == Mode::kStaticTable ? HI_JACK : NORMAL, &instance_, codec2);
    init_ms_ = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    if (result != 1) throw Error("the converter cannot start on " + environment.device().name);
    program_ = cache.seal();
}

Converter::~Converter() {
    CL_HDR2SDR_ARM_deinit(instance_);
}

bool Converter::convert(const Planes& in, const Planes& out, const Record* record, const Luminances& luminances,
                        int interval) {
    const int errors = library_errors();
    _HDR2SDR_config_params_t from = in.params(), to = out.params();
    int32_t result = 0;
    in.pass_to_device();
    out.pass_to_device();
    if (entry_ == Entry::kPool) {
        // In units of 0.0001 cd/m2. The library calls the second value a minimum, but uses it as a peak when it chooses
        // the default record, so it gets the mastering peak too.
        const uint32_t peak = rounded(luminances.mastering_peak * 10000);
        const uint32_t static_info[] = {peak, peak, rounded(luminances.max_cll * 10000)};
        Record copy = record != nullptr ? *record : Record{};
        result =
            CL_HDR2SDR_ARM_convert1(&from, &to, record != nullptr ? &copy : nullptr, static_info, instance_, interval);
    } else {
        Record copy = record != nullptr ? *record : default_record(luminances.mastering_peak, luminances.max_cll);
        result = CL_HDR2SDR_ARM_convert(&from, &to, &copy, rounded(luminances.mastering_peak), instance_);
    }
    in.take_back();
    out.take_back();
    if (library_errors() != errors || (result != 1 && interval == 0)) throw Error("the conversion failed");
    return result == 1;
}

} // namespace lumivert::tool
