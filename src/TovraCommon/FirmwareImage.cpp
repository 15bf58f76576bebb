#include "FirmwareImage.h"

#include <fstream>
#include <system_error>
#include <filesystem>

namespace tovra {

bool loadFirmwareImage(const std::string &path, FirmwareImage &image, std::string &error) {
    namespace fs = std::filesystem;
    std::error_code ec;
    const fs::file_status st = fs::status(path, ec);
    if (ec || !fs::is_regular_file(st)) {
        error = "names " + path + ", which is not a readable file.";
        return false;
    }
    const std::uintmax_t size = fs::file_size(path, ec);
    if (ec || size == 0 || size > kMaxFirmwareImageSize) {
        error = "names " + path + ", an image of " + std::to_string(ec ? 0 : size) + " bytes; an image has 1 to " +
                std::to_string(kMaxFirmwareImageSize) + " bytes.";
        return false;
    }
    std::ifstream in(path, std::ios::binary);
    image.bytes.resize(static_cast<std::size_t>(size));
    if (!in || !in.read(reinterpret_cast<char *>(image.bytes.data()), static_cast<std::streamsize>(size))) {
        error = "names " + path + ", which is not a readable file.";
        image.bytes.clear();
        return false;
    }
    return true;
}

}  // namespace tovra
