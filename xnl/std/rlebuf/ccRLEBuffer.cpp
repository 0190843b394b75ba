#include "xnl/std/rlebuf/ccRLEBuffer.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

namespace {

using Rep = ccRLEBuffer::Rep;

[[noreturn, gnu::cold]] void ThrowDegenerate(const std::string& why) { throw ccRLEBuffer::Degenerate(why); }

std::string SizeText(int64_t width, int64_t height) { return std::to_string(width) + " x " + std::to_string(height); }

}  // namespace

// The block is made and freed here only; whoever holds it counts through atomic_ref.
struct ccRLEBufferBlocks {
    static Rep* New(int32_t width, int32_t height, int64_t capacity) {
        if (width < 0 || height < 0) ThrowDegenerate("a buffer of " + SizeText(width, height) + " pixels");
        if (capacity > ccRLEBuffer::kMaxRuns) ThrowDegenerate(std::to_string(capacity) + " runs are too many");
        capacity = std::max<int64_t>(capacity, 0);
        const size_t bytes = Rep::RunsOffset(height) + sizeof(ccRLERun) * static_cast<size_t>(capacity);
        auto* rep = static_cast<Rep*>(std::malloc(bytes));
        if (!rep) throw std::bad_alloc();
        rep->holders = 1;
        rep->width = width;
        rep->height = height;
        rep->numRuns = 0;
        rep->capacity = static_cast<int32_t>(capacity);
        rep->reserved = 0;
        rep->RowStarts()[0] = 0;
        return rep;
    }
    // A copy of `from` with room for `capacity` runs (at least its own).
    static Rep* Copy(const Rep* from, int64_t capacity) {
        Rep* rep = New(from->width, from->height, std::max<int64_t>(capacity, from->numRuns));
        std::memcpy(rep->RowStarts(), from->RowStarts(), sizeof(int32_t) * (static_cast<size_t>(from->height) + 1));
        std::copy_n(from->Runs(), from->numRuns, rep->Runs());
        rep->numRuns = from->numRuns;
        return rep;
    }
    static void AddHolder(Rep* rep) noexcept {
        std::atomic_ref<uint32_t>(rep->holders).fetch_add(1, std::memory_order_relaxed);
    }
    static void DropHolder(Rep* rep) noexcept {
        if (rep && std::atomic_ref<uint32_t>(rep->holders).fetch_sub(1, std::memory_order_acq_rel) == 1) std::free(rep);
    }
    static bool Unique(Rep* rep) noexcept {
        return std::atomic_ref<uint32_t>(rep->holders).load(std::memory_order_acquire) == 1;
    }
};

using Blocks = ccRLEBufferBlocks;

// Writer

ccRLEBuffer::Writer::Writer(int32_t width, int32_t height, int64_t expectedRuns) {
    Rep* rep = Blocks::New(width, height, std::min(expectedRuns, kMaxRuns));
    rep_ = rep;
    rowStarts_ = rep->RowStarts();
    runs_ = rep->Runs();
    capacity_ = rep->capacity;
    height_ = height;
}

ccRLEBuffer::Writer::~Writer() { std::free(rep_); }

void ccRLEBuffer::Writer::Grow(int64_t needed) {
    if (needed > kMaxRuns) ThrowDegenerate("more than " + std::to_string(kMaxRuns) + " runs");
    const int64_t wanted = std::min(std::max({needed, int64_t{capacity_} * 2, int64_t{16}}), kMaxRuns);
    const size_t bytes = Rep::RunsOffset(height_) + sizeof(ccRLERun) * static_cast<size_t>(wanted);
    void* grown = std::realloc(rep_, bytes);
    if (!grown) throw std::bad_alloc();
    rep_ = grown;
    auto* rep = static_cast<Rep*>(grown);
    rep->capacity = static_cast<int32_t>(wanted);
    rowStarts_ = rep->RowStarts();
    runs_ = rep->Runs();
    capacity_ = rep->capacity;
}

ccRLEBuffer ccRLEBuffer::Writer::Finish(bool trimWaste) noexcept {
    if (trimWaste && int64_t{capacity_} - count_ > int64_t{count_} + 64) {
        // Shrinking in place, or moving to a smaller block: a failure keeps the larger one.
        const size_t bytes = Rep::RunsOffset(height_) + sizeof(ccRLERun) * static_cast<size_t>(count_);
        if (void* trimmed = std::realloc(rep_, bytes)) {
            rep_ = trimmed;
            auto* rep = static_cast<Rep*>(trimmed);
            rep->capacity = count_;
            rowStarts_ = rep->RowStarts();
        }
    }
    auto* rep = static_cast<Rep*>(rep_);
    rowStarts_[height_] = count_;
    rep->numRuns = count_;
    rep_ = nullptr;
    rowStarts_ = nullptr;
    runs_ = nullptr;
    count_ = capacity_ = 0;
    return ccRLEBuffer(rep);
}

// Values

ccRLEBuffer::ccRLEBuffer(int32_t width, int32_t height, uint8_t value) {
    if (width < 0 || height < 0) ThrowDegenerate("a buffer of " + SizeText(width, height) + " pixels");
    const int32_t rows = width > 0 ? height : 0;
    Rep* rep = Blocks::New(width, height, rows);
    int32_t* starts = rep->RowStarts();
    ccRLERun* runs = rep->Runs();
    for (int32_t y = 0; y < height; ++y) starts[y] = width > 0 ? y : 0;
    starts[height] = rows;
    for (int32_t y = 0; y < rows; ++y) Writer::Put(runs + y, value, width);
    rep->numRuns = rows;
    rep_ = rep;
}

ccRLEBuffer::ccRLEBuffer(const ccPelBuffer_const<uint8_t>& image) {
    if (!image.IsBound()) throw ccPel::UnboundWindow("a run-length buffer of an unbound image");
    const int32_t width = image.Width();
    const int32_t height = image.Height();
    // Counted first, so that the block is allocated once and exactly.
    int64_t total = 0;
    if (width > 0) {
        for (int32_t y = 0; y < height; ++y) {
            const uint8_t* row = image.RowPointer(y);
            int32_t changes = 0;
            for (int32_t x = 1; x < width; ++x) changes += row[x] != row[x - 1];
            total += 1 + changes;
        }
    }
    Writer writer(width, height, total);
    for (int32_t y = 0; y < height; ++y) {
        writer.StartRow(y);
        if (width == 0) continue;
        const uint8_t* row = image.RowPointer(y);
        int32_t start = 0;
        for (int32_t x = 1; x < width; ++x) {
            if (row[x] != row[start]) {
                writer.Append(row[start], x - start);
                start = x;
            }
        }
        writer.Append(row[start], width - start);
    }
    *this = writer.Finish();
}

ccRLEBuffer ccRLEBuffer::FromRuns(int32_t width, int32_t height, std::span<const ccRLERun> runs) {
    if (width < 0 || height < 0) ThrowDegenerate("a buffer of " + SizeText(width, height) + " pixels");
    if (runs.size() > static_cast<size_t>(kMaxRuns)) ThrowDegenerate(std::to_string(runs.size()) + " runs are too many");
    // Checked whole before anything is allocated.
    size_t next = 0;
    for (int32_t y = 0; y < height && width > 0; ++y) {
        int64_t sum = 0;
        while (sum < width) {
            if (next == runs.size())
                ThrowDegenerate("the runs end in row " + std::to_string(y) + " of " + SizeText(width, height));
            const int32_t length = runs[next++].length;
            if (length < 1)
                ThrowDegenerate("run " + std::to_string(next - 1) + " is " + std::to_string(length) + " long");
            sum += length;
        }
        if (sum != width)
            ThrowDegenerate("the runs of row " + std::to_string(y) + " add up to " + std::to_string(sum) +
                            ", not to the width " + std::to_string(width));
    }
    if (next != runs.size())
        ThrowDegenerate(std::to_string(runs.size() - next) + " runs more than the rows of " + SizeText(width, height) +
                        " hold");
    Writer writer(width, height, static_cast<int64_t>(runs.size()));
    size_t index = 0;
    for (int32_t y = 0; y < height; ++y) {
        writer.StartRow(y);
        int64_t sum = 0;
        while (sum < width) {
            writer.Append(runs[index].value, runs[index].length);
            sum += runs[index++].length;
        }
    }
    return writer.Finish();
}

ccRLEBuffer::ccRLEBuffer(const ccRLEBuffer& other) noexcept : rep_(other.rep_) {
    if (rep_) Blocks::AddHolder(rep_);
}

ccRLEBuffer& ccRLEBuffer::operator=(const ccRLEBuffer& other) noexcept {
    if (other.rep_) Blocks::AddHolder(other.rep_);
    Blocks::DropHolder(rep_);
    rep_ = other.rep_;
    return *this;
}

ccRLEBuffer& ccRLEBuffer::operator=(ccRLEBuffer&& other) noexcept {
    if (this != &other) {
        Blocks::DropHolder(rep_);
        rep_ = other.rep_;
        other.rep_ = nullptr;
    }
    return *this;
}

ccRLEBuffer::~ccRLEBuffer() { Blocks::DropHolder(rep_); }

void ccRLEBuffer::RequireInitialized(const char* what) const {
    if (!rep_) ThrowDegenerate(std::string(what) + " of an uninitialised buffer");
}

void ccRLEBuffer::MakeUnique() {
    if (Blocks::Unique(rep_)) return;
    Rep* copy = Blocks::Copy(rep_, rep_->capacity);
    Blocks::DropHolder(rep_);
    rep_ = copy;
}

void ccRLEBuffer::Reserve(int64_t totalRuns) {
    RequireInitialized("reserving runs");
    if (totalRuns > kMaxRuns) ThrowDegenerate(std::to_string(totalRuns) + " runs are too many");
    if (totalRuns <= rep_->capacity) {
        MakeUnique();
        return;
    }
    Rep* grown = Blocks::Copy(rep_, totalRuns);
    Blocks::DropHolder(rep_);
    rep_ = grown;
}

ccRLERun* ccRLEBuffer::MutableRuns() {
    if (!rep_) return nullptr;
    MakeUnique();
    return rep_->Runs();
}

uint8_t ccRLEBuffer::Pixel(int32_t x, int32_t y) const {
    if (x < 0 || y < 0 || x >= Width() || y >= Height())
        throw ccPel::BadCoord("pixel (" + std::to_string(x) + ", " + std::to_string(y) + ") of a " +
                              SizeText(Width(), Height()) + " run-length buffer");
    int32_t end = 0;
    for (const ccRLERun& run : Row(y)) {
        end += run.length;
        if (x < end) return run.value;
    }
    ThrowDegenerate("the runs of row " + std::to_string(y) + " do not reach the width");
}

bool ccRLEBuffer::Binary() const {
    RequireInitialized("Binary");
    return std::all_of(Runs().begin(), Runs().end(),
                       [](const ccRLERun& run) { return run.value == 0 || run.value == 255; });
}

void ccRLEBuffer::Expand(const ccPelBuffer<uint8_t>& image, int32_t dx, int32_t dy,
                         std::optional<uint8_t> transparent) const {
    RequireInitialized("expanding the runs");
    if (!image.IsBound()) throw ccPel::UnboundWindow("expanding runs into an unbound image");
    const int64_t imageWidth = image.Width();
    const int64_t imageHeight = image.Height();
    const int32_t firstRow = static_cast<int32_t>(std::clamp<int64_t>(-int64_t{dy}, 0, Height()));
    const int32_t endRow = static_cast<int32_t>(std::clamp<int64_t>(imageHeight - dy, 0, Height()));
    for (int32_t y = firstRow; y < endRow; ++y) {
        uint8_t* out = image.RowPointer(y + dy);
        int64_t x = dx;
        for (const ccRLERun& run : Row(y)) {
            const int64_t begin = std::max<int64_t>(x, 0);
            const int64_t end = std::min<int64_t>(x + run.length, imageWidth);
            x += run.length;
            if (begin < end && (!transparent || run.value != *transparent))
                std::memset(out + begin, run.value, static_cast<size_t>(end - begin));
            if (x >= imageWidth) break;
        }
    }
}

ccPelBuffer<uint8_t> ccRLEBuffer::Expand() const {
    RequireInitialized("expanding the runs");
    if (Width() == 0 || Height() == 0) ThrowDegenerate("an image of " + SizeText(Width(), Height()) + " pixels");
    ccPelBuffer<uint8_t> image(ccPelRootPtrh<uint8_t>(new ccPelRootOwn<uint8_t>(Width(), Height(), 32, ccPelFill::None)));
    Expand(image, 0, 0);
    return image;
}

ccRLEBuffer ccRLEBuffer::PixelMap(std::span<const uint8_t, 256> table) const {
    RequireInitialized("mapping the pixels");
    Rep* mapped = Blocks::Copy(rep_, rep_->numRuns);
    ccRLERun* runs = mapped->Runs();
    for (int32_t i = 0; i < mapped->numRuns; ++i) runs[i].value = table[runs[i].value];
    return ccRLEBuffer(mapped);
}

namespace {

// Walks one row's runs from its left end and hands on the part between the present
// position and `to`, joined to what the row holds already.
class RowCursor {
public:
    explicit RowCursor(std::span<const ccRLERun> row) noexcept : row_(row) {}

    void Advance(int64_t to, ccRLEBuffer::Writer* writer, int32_t rowStart) {
        while (position_ < to) {
            const ccRLERun& run = row_[index_];
            const int64_t take = std::min(runStart_ + run.length, to) - position_;
            if (writer) writer->AppendJoined(run.value, static_cast<int32_t>(take), rowStart);
            position_ += take;
            if (position_ == runStart_ + run.length) {
                runStart_ = position_;
                ++index_;
            }
        }
    }

private:
    std::span<const ccRLERun> row_;
    size_t index_ = 0;
    int64_t runStart_ = 0;
    int64_t position_ = 0;
};

}  // namespace

ccRLEBuffer ccRLEBuffer::Combine(const ccRLEBuffer& sub, int32_t subX, int32_t subY,
                                 std::span<const uint8_t, 256> map, std::optional<uint8_t> transparent) const {
    RequireInitialized("combining");
    sub.RequireInitialized("combining with a sub-buffer");
    const int64_t subRight = int64_t{subX} + sub.Width();
    const int64_t subBottom = int64_t{subY} + sub.Height();
    if (subX < 0 || subY < 0 || subRight > Width() || subBottom > Height())
        ThrowDegenerate("a sub-buffer of " + SizeText(sub.Width(), sub.Height()) + " at (" + std::to_string(subX) +
                        ", " + std::to_string(subY) + ") does not lie inside " + SizeText(Width(), Height()));
    Writer writer(Width(), Height(), int64_t{NumRuns()} + 2 * int64_t{sub.NumRuns()});
    for (int32_t y = 0; y < Height(); ++y) {
        writer.StartRow(y);
        const std::span<const ccRLERun> row = Row(y);
        if (y < subY || y >= subBottom || sub.Width() == 0) {
            writer.Expect(static_cast<int64_t>(row.size()));
            for (const ccRLERun& run : row) writer.Append(run.value, run.length);
            continue;
        }
        const int32_t rowStart = writer.Count();
        RowCursor cursor(row);
        cursor.Advance(subX, &writer, rowStart);
        int64_t x = subX;
        for (const ccRLERun& run : sub.Row(y - subY)) {
            x += run.length;
            if (transparent && run.value == *transparent) {
                cursor.Advance(x, &writer, rowStart);
            } else {
                cursor.Advance(x, nullptr, rowStart);
                writer.AppendJoined(map[run.value], run.length, rowStart);
            }
        }
        cursor.Advance(Width(), &writer, rowStart);
    }
    return writer.Finish();
}

bool ccRLEBuffer::operator==(const ccRLEBuffer& other) const noexcept {
    if (rep_ == other.rep_) return true;
    if (!rep_ || !other.rep_) return false;
    if (rep_->width != other.rep_->width || rep_->height != other.rep_->height ||
        rep_->numRuns != other.rep_->numRuns)
        return false;
    if (!std::equal(rep_->RowStarts(), rep_->RowStarts() + rep_->height + 1, other.rep_->RowStarts())) return false;
    // Element by element: the three bytes after each value are padding.
    return std::equal(Runs().begin(), Runs().end(), other.Runs().begin());
}

bool ccRLEBuffer::SamePixels(const ccRLEBuffer& other) const noexcept {
    if (rep_ == other.rep_) return true;
    if (!rep_ || !other.rep_) return false;
    if (Width() != other.Width() || Height() != other.Height()) return false;
    if (Width() == 0) return true;
    for (int32_t y = 0; y < Height(); ++y) {
        const auto a = Row(y);
        const auto b = other.Row(y);
        size_t i = 0, j = 0;
        int64_t endA = a[0].length, endB = b[0].length;
        while (true) {
            if (a[i].value != b[j].value) return false;
            const int64_t reached = std::min(endA, endB);
            if (reached >= Width()) break;
            if (endA == reached) endA += a[++i].length;
            if (endB == reached) endB += b[++j].length;
        }
    }
    return true;
}
