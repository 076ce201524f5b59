#include "comparison/delta_e.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <exception>
#include <optional>
#include <thread>

extern "C" {
#include <libavutil/pixdesc.h>
}

#include "frames/rgb_rows.h"
#include "hdr10plus/pixel_chain.h"
#include "hdr10plus/tone_curve.h"
#include "io/thread.h"

namespace lumivert::tool {
namespace {

constexpr int kSteps = 1 << 14; // of a signal

/// Light of a signal from 0 to 1 in steps.
const std::vector<float>& light_table(Encoding encoding) {
    static const auto make = [](Encoding kind) {
        std::vector<float> table(kSteps + 1);
        for (int i = 0; i <= kSteps; ++i) {
            const double signal = static_cast<double>(i) / kSteps;
            table[i] = static_cast<float>(kind == Encoding::kPq ? luminance_from_pq(signal)
                                                                : display_light(signal, 0, 1, kConverterTarget));
        }
        return table;
    };
    static const std::vector<float> pq = make(Encoding::kPq), sdr = make(Encoding::kSdr);
    return encoding == Encoding::kPq ? pq : sdr;
}

/// The PQ signal of light in cd/m2, by a table with 256 entries per octave between which it interpolates: within 1e-6.
class PqTable {
public:
    PqTable() : values_(static_cast<size_t>(index(16384.0F)) + 2) {
        for (size_t i = 0; i < values_.size(); ++i)
            values_[i] = static_cast<float>(pq_from_luminance(value(static_cast<uint32_t>(i) << kDropped)));
    }

    float operator()(float cd_m2) const {
        const uint32_t offset = bits(std::min(std::max(cd_m2, kLowest), 16384.0F)) - base();
        const uint32_t entry = offset >> kDropped;
        const float part =
            static_cast<float>(static_cast<int>(offset & ((1U << kDropped) - 1))) * (1.0F / (1U << kDropped));
        return values_[entry] + part * (values_[entry + 1] - values_[entry]);
    }

private:
    static constexpr int kDropped = 23 - 8;    // mantissa bits left for interpolation
    static constexpr float kLowest = 0x1p-40F; // its signal is 1e-6 above that of 0

    static uint32_t bits(float value) {
        uint32_t pattern = 0;
        std::memcpy(&pattern, &value, sizeof pattern);
        return pattern;
    }
    static uint32_t base() { return bits(kLowest); }
    static uint32_t index(float value) { return (bits(value) - base()) >> kDropped; }
    static float value(uint32_t offset) {
        const uint32_t pattern = base() + offset;
        float result = 0;
        std::memcpy(&result, &pattern, sizeof result);
        return result;
    }

    std::vector<float> values_;
};

const PqTable& pq_table() {
    static const PqTable table;
    return table;
}

LumaWeights weights_of(const AVFrame& frame, Encoding encoding) {
    constexpr LumaWeights kBt601 = {0.299, 0.114};
    switch (frame.colorspace) {
    case AVCOL_SPC_BT2020_NCL:
        return kBt2020;
    case AVCOL_SPC_BT470BG:
    case AVCOL_SPC_SMPTE170M:
        return kBt601;
    case AVCOL_SPC_BT709:
        return kBt709;
    default:
        return encoding == Encoding::kPq ? kBt2020 : kBt709;
    }
}

/// Runs `work(first, last, band)` for bands of rows, one for each core.
template <typename Work>
void in_bands(int rows, Work work) {
    const int bands = std::clamp(static_cast<int>(std::thread::hardware_concurrency()), 1, std::max(rows / 16, 1));
    std::vector<std::thread> threads;
    std::exception_ptr error;
    try {
        for (int band = 1; band < bands; ++band)
            threads.push_back(start_thread([&, band] { work(rows * band / bands, rows * (band + 1) / bands, band); }));
        work(0, rows / bands, 0);
    } catch (...) {
        error = std::current_exception();
    }
    for (std::thread& thread : threads)
        thread.join();
    if (error) std::rethrow_exception(error);
}

int band_count() {
    return std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
}

} // namespace

/// R'G'B' signals of either kind of frame.
struct LightRows::Source {
    const AVFrame& frame;
    const AVPixFmtDescriptor& format;
    std::unique_ptr<RgbRows> yuv;
    std::array<std::vector<float>, 3> rgb;

    Source(const AVFrame& f, Encoding encoding)
        : frame(f), format(*av_pix_fmt_desc_get(static_cast<AVPixelFormat>(f.format))) {
        if (format.nb_components < 3 || (format.flags & AV_PIX_FMT_FLAG_RGB) != 0) {
            for (auto& row : rgb)
                row.resize(static_cast<size_t>(f.width));
            return;
        }
        YuvView view = {};
        for (int i = 0; i < 3; ++i) {
            const AVComponentDescriptor& c = format.comp[i];
            view.component[i] = {f.data[c.plane] + c.offset, f.linesize[c.plane], c.step, c.shift};
        }
        view.width = f.width;
        view.height = f.height;
        view.bits = format.comp[0].depth;
        view.chroma_x = format.log2_chroma_w;
        view.chroma_y = format.log2_chroma_h;
        view.full_range = f.color_range == AVCOL_RANGE_JPEG;
        yuv = std::make_unique<RgbRows>(view, weights_of(f, encoding));
    }

    const float* signal(int index) const {
        if (!yuv) return rgb[format.nb_components < 3 ? 0 : index].data();
        return index == 0 ? yuv->red() : index == 1 ? yuv->green() : yuv->blue();
    }

    void read(int y) {
        if (yuv) {
            yuv->read(y);
            return;
        }
        for (int i = 0; i < std::min<int>(format.nb_components, 3); ++i) {
            const AVComponentDescriptor& c = format.comp[i];
            const uint8_t* row = frame.data[c.plane] + static_cast<ptrdiff_t>(y) * frame.linesize[c.plane] + c.offset;
            const float scale = 1.0F / static_cast<float>((1 << c.depth) - 1);
            for (int x = 0; x < frame.width; ++x) {
                const uint8_t* at = row + static_cast<ptrdiff_t>(x) * c.step;
                rgb[i][x] = scale * static_cast<float>(c.depth > 8 ? at[0] | at[1] << 8 : at[0]);
            }
        }
    }
};

LightRows::LightRows(const AVFrame& frame, Encoding encoding)
    : source_(std::make_unique<Source>(frame, encoding)), encoding_(encoding) {
    for (auto& row : light_)
        row.resize(static_cast<size_t>(frame.width));
}

LightRows::~LightRows() = default;

void LightRows::read(int y) {
    source_->read(y);
    const std::vector<float>& table = light_table(encoding_);
    const auto width = light_[0].size();
    for (int i = 0; i < 3; ++i) {
        const float* signal = source_->signal(i);
        for (size_t x = 0; x < width; ++x) {
            const float step = std::min(std::max(signal[x], 0.0F), 1.0F) * kSteps + 0.5F;
            light_[i][x] = table[static_cast<int>(step)];
        }
    }
    if (encoding_ == Encoding::kPq) return;
    for (size_t x = 0; x < width; ++x) { // BT.709 to BT.2020 primaries (ITU-R BT.2087)
        const float r = light_[0][x], g = light_[1][x], b = light_[2][x];
        light_[0][x] = 0.6274F * r + 0.3293F * g + 0.0433F * b;
        light_[1][x] = 0.0691F * r + 0.9195F * g + 0.0114F * b;
        light_[2][x] = 0.0164F * r + 0.0880F * g + 0.8956F * b;
    }
}

void DeltaE::add(const float* values, int count) {
    if (histogram_.empty()) histogram_.resize(kBins);
    float largest = 0;
    double sum = 0;
    for (int i = 0; i < count; ++i) {
        ++histogram_[static_cast<int>(std::min(values[i] * kBinsPerUnit, kBins - 1.0F))];
        sum += values[i];
        largest = std::max(largest, values[i]);
    }
    sum_ += sum;
    count_ += count;
    largest_ = std::max<double>(largest_, largest);
}

void DeltaE::add(const DeltaE& other) {
    if (other.histogram_.empty()) return;
    if (histogram_.empty()) histogram_.resize(kBins);
    for (size_t i = 0; i < kBins; ++i)
        histogram_[i] += other.histogram_[i];
    sum_ += other.sum_;
    count_ += other.count_;
    largest_ = std::max(largest_, other.largest_);
}

double DeltaE::percentile(double percentage) const {
    double seen = 0;
    for (size_t i = 0; i < histogram_.size(); ++i) {
        seen += histogram_[i];
        if (seen >= percentage / 100 * static_cast<double>(count_))
            return std::min((static_cast<double>(i) + 0.5) / kBinsPerUnit, largest_);
    }
    return largest_;
}

namespace {

/// Rows of a picture as I, T and P (ITU-R BT.2124).
class ItpRows {
public:
    explicit ItpRows(const Side& side) : light_(side.frame, side.encoding) {
        for (auto& row : itp_)
            row.resize(static_cast<size_t>(side.frame.width));
    }

    void read(int y) {
        light_.read(y);
        const PqTable& pq = pq_table();
        constexpr float kUnit = 1 / 4096.0F;
        const float *r = light_.component(0), *g = light_.component(1), *b = light_.component(2);
        for (size_t x = 0; x < itp_[0].size(); ++x) {
            const float l = pq(kUnit * (1688 * r[x] + 2146 * g[x] + 262 * b[x]));
            const float m = pq(kUnit * (683 * r[x] + 2951 * g[x] + 462 * b[x]));
            const float s = pq(kUnit * (99 * r[x] + 309 * g[x] + 3688 * b[x]));
            itp_[0][x] = 0.5F * (l + m);
            itp_[1][x] = 0.5F * kUnit * (6610 * l - 13613 * m + 7003 * s);
            itp_[2][x] = kUnit * (17933 * l - 17390 * m - 543 * s);
        }
    }

    /// Sum of max(R, G, B) over the row, in cd/m2.
    double light() const {
        double sum = 0;
        for (size_t x = 0; x < itp_[0].size(); ++x)
            sum += std::max({light_.component(0)[x], light_.component(1)[x], light_.component(2)[x]});
        return sum;
    }

    void distances(const ItpRows& other, std::vector<float>& row) const {
        for (size_t x = 0; x < row.size(); ++x) {
            const float i = itp_[0][x] - other.itp_[0][x], t = itp_[1][x] - other.itp_[1][x];
            const float p = itp_[2][x] - other.itp_[2][x];
            row[x] = 720 * std::sqrt(i * i + t * t + p * p);
        }
    }

private:
    LightRows light_;
    std::array<std::vector<float>, 3> itp_;
};

} // namespace

void Colours::add(const Colours& other) {
    between.add(other.between);
    for (size_t side = 0; side < 2; ++side) {
        to_source[side].add(other.to_source[side]);
        light[side] += other.light[side];
    }
}

Colours compare_colours(const Side& a, const Side& b, const AVFrame* source) {
    const int width = a.frame.width, height = a.frame.height;
    std::vector<Colours> parts(static_cast<size_t>(band_count()));
    in_bands(height, [&](int first, int last, int band) {
        Colours& part = parts[band];
        ItpRows sides[] = {ItpRows(a), ItpRows(b)};
        std::optional<ItpRows> origin;
        if (source != nullptr) origin.emplace(Side{*source, Encoding::kPq});
        std::vector<float> row(static_cast<size_t>(width));
        const auto add = [&](const ItpRows& one, const ItpRows& other, DeltaE& to) {
            one.distances(other, row);
            to.add(row.data(), width);
        };
        for (int y = first; y < last; ++y) {
            for (ItpRows& side : sides)
                side.read(y);
            add(sides[0], sides[1], part.between);
            if (!origin) continue;
            origin->read(y);
            for (size_t side = 0; side < 2; ++side) {
                add(*origin, sides[side], part.to_source[side]);
                part.light[side] += sides[side].light() / (static_cast<double>(width) * height);
            }
        }
    });
    Colours all;
    for (const Colours& part : parts)
        all.add(part);
    return all;
}

void to_pq(const AVFrame& from, Encoding encoding, AVFrame& gbrp10) {
    const PqTable& pq = pq_table();
    in_bands(from.height, [&](int first, int last, int) {
        LightRows rows(from, encoding);
        for (int y = first; y < last; ++y) {
            rows.read(y);
            for (int i = 0; i < 3; ++i) {
                const int plane = (i + 2) % 3; // green, blue, red
                auto* out = reinterpret_cast<uint16_t*>(gbrp10.data[plane] +
                                                        static_cast<ptrdiff_t>(y) * gbrp10.linesize[plane]);
                for (int x = 0; x < from.width; ++x) {
                    const float code = 1023 * pq(rows.component(i)[x]) + 0.5F;
                    out[x] = static_cast<uint16_t>(static_cast<int>(code));
                }
            }
        }
    });
}

} // namespace lumivert::tool
