#include "ImageEncoder.h"

#include <png.h>
#include <turbojpeg.h>

namespace dvrweb {

namespace {

void appendPng(png_structp png, png_bytep data, png_size_t length) {
    auto *out = static_cast<std::string *>(png_get_io_ptr(png));
    out->append(reinterpret_cast<const char *>(data), length);
}

std::string encodePng(const std::vector<uint8_t> &rgb, int width, int height, std::string *error) {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png != nullptr ? png_create_info_struct(png) : nullptr;
    if (info == nullptr) {
        png_destroy_write_struct(&png, nullptr);
        *error = "out of memory for PNG";
        return "";
    }
    std::string out;
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        *error = "PNG encoding failed";
        return "";
    }
    png_set_write_fn(png, &out, appendPng, nullptr);
    // Speed over size: the live picture is encoded every second.
    png_set_compression_level(png, 1);
    png_set_IHDR(png, info, width, height, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    for (int y = 0; y < height; ++y) {
        png_write_row(png, const_cast<png_bytep>(rgb.data() + static_cast<size_t>(y) * width * 3));
    }
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return out;
}

std::string encodeJpeg(const std::vector<uint8_t> &rgb, int width, int height, std::string *error) {
    tjhandle handle = tjInitCompress();
    if (handle == nullptr) {
        *error = "cannot start the JPEG encoder";
        return "";
    }
    unsigned char *buffer = nullptr;
    unsigned long size = 0;
    const int result = tjCompress2(handle, rgb.data(), width, width * 3, height, TJPF_RGB, &buffer,
                                   &size, TJSAMP_420, ImageEncoder::kJpegQuality, TJFLAG_FASTDCT);
    std::string out;
    if (result == 0) {
        out.assign(reinterpret_cast<const char *>(buffer), size);
    } else {
        *error = std::string("JPEG encoding failed: ") + tjGetErrorStr2(handle);
    }
    tjFree(buffer);
    tjDestroy(handle);
    return out;
}

}  // namespace

std::optional<ImageType> ImageEncoder::parseType(const std::string &name) {
    if (name == "png") {
        return ImageType::kPng;
    }
    if (name == "jpeg" || name == "jpg") {
        return ImageType::kJpeg;
    }
    return std::nullopt;
}

const char *ImageEncoder::mimeType(ImageType type) {
    return type == ImageType::kPng ? "image/png" : "image/jpeg";
}

std::string ImageEncoder::encode(const std::vector<uint8_t> &rgb, int width, int height,
                                 ImageType type, std::string *error) {
    if (width <= 0 || height <= 0 || rgb.size() < static_cast<size_t>(width) * height * 3) {
        *error = "no picture to encode";
        return "";
    }
    return type == ImageType::kPng ? encodePng(rgb, width, height, error)
                                   : encodeJpeg(rgb, width, height, error);
}

}  // namespace dvrweb
