#include "ImageFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/algorithm/string/case_conv.hpp>
#include <boost/format.hpp>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <vector>

#include "ImageEncoder.h"
#include "ToolError.h"

namespace TeliGrab {

namespace fs = std::filesystem;

namespace {

const char* const kKnownExtensions = ".png, .jpg, .jpeg, .tif or .tiff";

[[noreturn]] void failOutput(const std::string& what, const std::string& path, int error) {
    throw ToolError(ExitCode::OutputError,
                    (boost::format("cannot %s '%s': %s") % what % path % std::strerror(error)).str());
}

void checkWritableDirectory(const fs::path& directory) {
    const fs::path shown = directory.empty() ? fs::path(".") : directory;
    std::error_code error;
    if (!fs::is_directory(shown, error)) failOutput("write into", shown.string(), error ? error.value() : ENOTDIR);
    if (access(shown.c_str(), W_OK | X_OK) != 0) failOutput("write into", shown.string(), errno);
}

// Removes the temporary file unless it was renamed into place.
class TemporaryFile {
public:
    explicit TemporaryFile(const fs::path& target)
        : name_((target.parent_path() / ("." + target.filename().string() + ".XXXXXX")).string()) {
        descriptor_ = mkstemp(name_.data());
        if (descriptor_ < 0) failOutput("write", target.string(), errno);
    }
    ~TemporaryFile() {
        if (descriptor_ >= 0) close(descriptor_);
        if (!kept_) unlink(name_.c_str());
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    void write(const std::vector<uchar>& bytes, const std::string& target) {
        std::size_t done = 0;
        while (done < bytes.size()) {
            const ssize_t n = ::write(descriptor_, bytes.data() + done, bytes.size() - done);
            if (n < 0 && errno == EINTR) continue;
            if (n < 0) failOutput("write", target, errno);
            done += static_cast<std::size_t>(n);
        }
        const int closed = close(descriptor_);
        descriptor_ = -1;
        if (closed != 0) failOutput("write", target, errno);
        // mkstemp makes the file private; an image is as readable as any new file.
        const mode_t mask = umask(0);
        umask(mask);
        chmod(name_.c_str(), 0666 & ~mask);
        if (std::rename(name_.c_str(), target.c_str()) != 0) failOutput("write", target, errno);
        kept_ = true;
    }

private:
    std::string name_;
    int descriptor_ = -1;
    bool kept_ = false;
};

}  // namespace

ImageFormat formatOf(const std::string& fileName) {
    const auto extension = boost::algorithm::to_lower_copy(fs::path(fileName).extension().string());
    if (extension == ".png") return ImageFormat::Png;
    if (extension == ".jpg" || extension == ".jpeg") return ImageFormat::Jpeg;
    if (extension == ".tif" || extension == ".tiff") return ImageFormat::Tiff;
    throw ToolError(ExitCode::Usage, (boost::format("cannot tell the image format of '%s': name it %s") % fileName %
                                      kKnownExtensions)
                                         .str());
}

ImageFormat formatNamed(const std::string& word) {
    const auto lower = boost::algorithm::to_lower_copy(word);
    if (lower == "png") return ImageFormat::Png;
    if (lower == "jpeg" || lower == "jpg") return ImageFormat::Jpeg;
    if (lower == "tiff" || lower == "tif") return ImageFormat::Tiff;
    throw ToolError(ExitCode::Usage, (boost::format("unknown image format '%s': use png, jpeg or tiff") % word).str());
}

const char* extensionOf(ImageFormat format) {
    switch (format) {
        case ImageFormat::Jpeg: return ".jpg";
        case ImageFormat::Tiff: return ".tif";
        default: return ".png";
    }
}

void checkOutputFile(const std::string& fileName) {
    formatOf(fileName);
    std::error_code error;
    if (fs::is_directory(fileName, error)) failOutput("write", fileName, EISDIR);
    checkWritableDirectory(fs::path(fileName).parent_path());
}

void checkOutputDirectory(const std::string& directory) {
    fs::path existing = fs::absolute(directory).lexically_normal();
    std::error_code error;
    while (!fs::exists(existing, error) && existing.has_relative_path()) existing = existing.parent_path();
    if (existing != fs::absolute(directory).lexically_normal() && !fs::is_directory(existing, error))
        failOutput("create directory", directory, ENOTDIR);
    checkWritableDirectory(existing);
}

void createOutputDirectory(const std::string& directory) {
    std::error_code error;
    fs::create_directories(directory, error);
    if (error) failOutput("create directory", directory, error.value());
    checkWritableDirectory(directory);
}

void writeImage(const std::string& fileName, const cv::Mat& image) {
    const auto extension = extensionOf(formatOf(fileName));
    std::vector<uchar> bytes;
    if (!encodeImage(extension, image, bytes))
        throw ToolError(ExitCode::OutputError,
                        (boost::format("cannot write '%s': no %s encoder for a %d x %d image of %d channel(s)") %
                         fileName % (extension + 1) % image.cols % image.rows % image.channels())
                            .str());
    writeFile(fileName, bytes);
}

void writeFile(const std::string& fileName, const std::vector<uchar>& bytes) {
    TemporaryFile temporary(fileName);
    temporary.write(bytes, fileName);
}

}  // namespace TeliGrab
