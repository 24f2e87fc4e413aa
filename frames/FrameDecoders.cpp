#include "FrameDecoders.h"

#include <charls/charls.h>

#include <csetjmp>
#include <cstdio>
#include <exception>

// After <cstdio>, which it needs but does not include.
#include <jpeglib.h>

namespace frames {
namespace {

/// Bytes of the camera before a JPEG-LS image.
constexpr std::size_t jpegLsHead = 4;
constexpr std::int32_t mostBits = 16;
/// Most pixels of a picture. A damaged frame may claim any size.
constexpr std::uint64_t mostPixels = std::uint64_t{1} << 26;

bool IsPictureSize(std::uint64_t width, std::uint64_t height) {
    return width != 0 && height != 0 && width * height <= mostPixels;
}

/// Throws the exceptions of CharLS.
std::optional<SDecodedRaw> DecodeJpegLsImage(std::span<const std::uint8_t> image) {
    charls::jpegls_decoder decoder;
    decoder.source(image.data(), image.size());
    decoder.read_header();
    const charls::frame_info& info = decoder.frame_info();
    if (info.component_count != 1 || info.bits_per_sample > mostBits) return std::nullopt;
    if (!IsPictureSize(info.width, info.height)) return std::nullopt;
    std::vector<std::uint8_t> samples(decoder.destination_size());
    decoder.decode(samples);
    const std::size_t pixels = std::size_t{info.width} * info.height;
    if (samples.size() == 2 * pixels) return SDecodedRaw{info.width, std::move(samples)};
    // A sample of up to 8 bits has one byte.
    std::vector<std::uint8_t> wide(2 * pixels);
    for (std::size_t i = 0; i < pixels; ++i) wide[2 * i] = samples[i];
    return SDecodedRaw{info.width, std::move(wide)};
}

struct SJpegErrors {
    jpeg_error_mgr manager;  // the first member, because libjpeg knows only this one
    std::jmp_buf jump;
};

void JumpBack(j_common_ptr jpeg) {
    std::longjmp(reinterpret_cast<SJpegErrors*>(jpeg->err)->jump, 1);
}
/// The caller reports damaged frames; libjpeg would write to standard error.
void Ignore(j_common_ptr) {}

/// Owns the state of libjpeg for one picture and contains its jumps. Each step returns false if
/// libjpeg reported an error. No object within a step may have a destructor.
class CJpegDecoder {
   public:
    CJpegDecoder() {
        jpeg.err = jpeg_std_error(&errors.manager);
        errors.manager.error_exit = JumpBack;
        errors.manager.output_message = Ignore;
    }
    CJpegDecoder(const CJpegDecoder&) = delete;
    CJpegDecoder& operator=(const CJpegDecoder&) = delete;
    ~CJpegDecoder() { jpeg_destroy_decompress(&jpeg); }

    [[nodiscard]] bool ReadHeader(std::span<const std::uint8_t> frame, EJpegForm form) {
        if (setjmp(errors.jump) != 0) return false;
        jpeg_create_decompress(&jpeg);
        jpeg_mem_src(&jpeg, frame.data(), static_cast<unsigned long>(frame.size()));
        jpeg_read_header(&jpeg, TRUE);
        jpeg.out_color_space = form == EJpegForm::Colour ? JCS_RGB : JCS_GRAYSCALE;
        return true;
    }
    [[nodiscard]] bool ReadLines(std::uint8_t* to) {
        if (setjmp(errors.jump) != 0) return false;
        jpeg_start_decompress(&jpeg);
        const auto lineLength =
            std::size_t{jpeg.output_width} * static_cast<std::size_t>(jpeg.output_components);
        while (jpeg.output_scanline < jpeg.output_height) {
            JSAMPROW line = to + jpeg.output_scanline * lineLength;
            jpeg_read_scanlines(&jpeg, &line, 1);
        }
        jpeg_finish_decompress(&jpeg);
        return true;
    }
    [[nodiscard]] std::uint32_t width() const { return jpeg.image_width; }
    [[nodiscard]] std::uint32_t height() const { return jpeg.image_height; }
    [[nodiscard]] bool complained() const { return errors.manager.num_warnings != 0; }
    [[nodiscard]] std::size_t bytesLeft() const { return jpeg.src->bytes_in_buffer; }

   private:
    jpeg_decompress_struct jpeg{};
    SJpegErrors errors{};
};

}  // namespace

std::optional<SDecodedRaw> DecodeJpegLs(std::span<const std::uint8_t> frame) {
    if (frame.size() <= jpegLsHead) return std::nullopt;
    try {
        return DecodeJpegLsImage(frame.subspan(jpegLsHead));
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

std::optional<SDecodedJpeg> DecodeJpeg(std::span<const std::uint8_t> frame, EJpegForm form) {
    CJpegDecoder decoder;
    if (!decoder.ReadHeader(frame, form)) return std::nullopt;
    if (!IsPictureSize(decoder.width(), decoder.height())) return std::nullopt;
    SDecodedJpeg picture{decoder.width(), decoder.height(), {}, false};
    const std::size_t samplesPerPixel = form == EJpegForm::Colour ? 3 : 1;
    picture.samples.resize(samplesPerPixel * picture.width * picture.height);
    const bool done = decoder.ReadLines(picture.samples.data());
    picture.intact = done && !decoder.complained() && decoder.bytesLeft() == 0;
    return picture;
}

}  // namespace frames
