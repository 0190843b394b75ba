#include "com/image/files/ImageFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <vector>

#include "com/image/files/JpegCodec.h"
#include "com/image/files/PngCodec.h"
#include "com/image/files/PnmCodec.h"
#include "com/image/files/TiffCodec.h"
#include "com/image/files/ccImageFile.h"

namespace tessaly::image {

namespace {

std::string SystemReason(int error) { return std::strerror(error); }

// A descriptor closed on every way out.
class FileDescriptor {
public:
    explicit FileDescriptor(int fd) noexcept : fd_(fd) {}
    ~FileDescriptor() {
        if (fd_ >= 0) ::close(fd_);
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    int get() const noexcept { return fd_; }
    // Closes now; the error of close, or 0.
    int Close() noexcept {
        const int result = ::close(fd_);
        fd_ = -1;
        return result == 0 ? 0 : errno;
    }

private:
    int fd_;
};

std::vector<uint8_t> ReadWholeFile(const std::filesystem::path& path, const std::string& name) {
    FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.get() < 0) throw ccImageFile::OpenFailed(name + ": " + SystemReason(errno));
    struct stat status {};
    if (::fstat(file.get(), &status) != 0) throw ccImageFile::OpenFailed(name + ": " + SystemReason(errno));
    if (S_ISDIR(status.st_mode)) throw ccImageFile::OpenFailed(name + ": is a directory");
    if (!S_ISREG(status.st_mode)) throw ccImageFile::OpenFailed(name + ": not a regular file");
    if (status.st_size > ImageFileLimits::kMaxFileBytes)
        throw ccImageFile::BadFormat(name + ": file too large (" + std::to_string(status.st_size) + " bytes)");
    std::vector<uint8_t> bytes(static_cast<size_t>(status.st_size));
    size_t filled = 0;
    while (filled < bytes.size()) {
        const ssize_t got = ::read(file.get(), bytes.data() + filled, bytes.size() - filled);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) throw ccImageFile::ReadFailed(name + ": " + SystemReason(errno));
        if (got == 0) break;  // the file shrank while it was read: what is there is judged
        filled += static_cast<size_t>(got);
    }
    bytes.resize(filled);
    return bytes;
}

std::string LowerExtension(const std::filesystem::path& path) {
    std::string extension = path.extension().string();
    for (char& c : extension)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return extension;
}

std::vector<uint8_t> Encode(const std::filesystem::path& path, const ImageFilePixels& pixels, const std::string& name) {
    const std::string extension = LowerExtension(path);
    if (pixels.Width() <= 0 || pixels.Height() <= 0)
        throw ccImageFile::WriteFailed(name + ": an image of no pixels (" + std::to_string(pixels.Width()) + " x " +
                                       std::to_string(pixels.Height()) + ") cannot be written");
    if (extension == ".png") return PngCodec::Write(pixels, name);
    if (extension == ".tif" || extension == ".tiff") return TiffCodec::Write(pixels, name);
    if (extension == ".pgm") return PnmCodec::Write(pixels, false, name);
    if (extension == ".ppm") return PnmCodec::Write(pixels, true, name);
    if (extension == ".pnm") return PnmCodec::Write(pixels, pixels.Kind() == ImageFileKind::Rgb8, name);
    if (extension == ".jpg" || extension == ".jpeg")
        throw ccImageFile::WriteFailed(name + ": JPEG files are read, not written");
    throw ccImageFile::WriteFailed(name + ": no image format is written for the extension '" + extension +
                                   "' (.png, .tif, .tiff, .pgm, .ppm, .pnm)");
}

// The file beside the target that the bytes go to first.
std::filesystem::path PartialPath(const std::filesystem::path& path) {
    static std::atomic<uint64_t> counter{0};
    std::filesystem::path partial = path;
    partial += ".partial-" + std::to_string(::getpid()) + "-" + std::to_string(counter++);
    return partial;
}

}  // namespace

ImageFilePixels ReadImageFile(const std::filesystem::path& path, const ImageFileLimits& limits) {
    const std::string name = path.string();
    const std::vector<uint8_t> bytes = ReadWholeFile(path, name);
    return ReadImageFileFromMemory(bytes, name, limits);
}

ImageFilePixels ReadImageFileFromMemory(std::span<const uint8_t> bytes, const std::string& name,
                                        const ImageFileLimits& limits) {
    if (bytes.empty()) throw ccImageFile::BadFormat(name + ": empty file");
    if (PngCodec::Recognises(bytes)) return PngCodec::Read(bytes, name, limits);
    if (TiffCodec::Recognises(bytes)) return TiffCodec::Read(bytes, name, limits);
    if (JpegCodec::Recognises(bytes)) return JpegCodec::Read(bytes, name, limits);
    if (PnmCodec::Recognises(bytes)) return PnmCodec::Read(bytes, name, limits);
    if (bytes.size() >= 2 && bytes[0] == 'P' && bytes[1] >= '1' && bytes[1] <= '7')
        throw ccImageFile::BadFormat(name + ": netpbm files of kind P" + static_cast<char>(bytes[1]) +
                                     " are not supported (P2, P3, P5 and P6 are)");
    throw ccImageFile::BadFormat(name + ": not an image file of a known format (PNG, TIFF, PGM/PPM, JPEG)");
}

void WriteImageFile(const std::filesystem::path& path, const ImageFilePixels& pixels) {
    const std::string name = path.string();
    const std::vector<uint8_t> bytes = Encode(path, pixels, name);
    const std::filesystem::path partial = PartialPath(path);
    FileDescriptor file(::open(partial.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (file.get() < 0) throw ccImageFile::WriteFailed(name + ": " + SystemReason(errno));
    int error = 0;
    size_t written = 0;
    while (written < bytes.size() && error == 0) {
        const ssize_t put = ::write(file.get(), bytes.data() + written, bytes.size() - written);
        if (put < 0 && errno == EINTR) continue;
        if (put < 0) error = errno;
        else written += static_cast<size_t>(put);
    }
    if (error == 0) error = file.Close();
    if (error == 0 && ::rename(partial.c_str(), path.c_str()) != 0) error = errno;
    if (error != 0) {
        ::unlink(partial.c_str());
        throw ccImageFile::WriteFailed(name + ": " + SystemReason(error));
    }
}

}  // namespace tessaly::image
