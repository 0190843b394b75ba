// An 8-bit image held as runs of equal pixels: the region masks that shapes rasterise into
// and the values that LuxRLEBuffer wraps. Copies share one immutable block of storage
// through a count kept in the block (copying a buffer costs one atomic increment); the
// few members that change a buffer in place (Reserve, MutableRuns) first take a copy of
// their own when the block is shared.
//
// Storage, one block per buffer, allocated once (a builder may grow it while it builds):
//
//     [ header: holders, width, height, numRuns, capacity ]            24 bytes
//     [ rowStart[0] ... rowStart[height] ]  int32 each; rowStart[height] == numRuns
//     [ padding to 8 bytes ]
//     [ runs[0] ... runs[capacity - 1] ]    ccRLERun {uint8_t value; int32_t length} = 8 bytes,
//                                           exactly LuxRLERun, so the automation layer
//                                           hands the array out without copying
//
// The runs go row by row, top row first, each row left to right; the lengths of row y,
// runs[rowStart[y]] up to runs[rowStart[y + 1] - 1], are at least 1 and add up to the
// width (a buffer 0 wide has no runs in any row). runs[numRuns ... capacity - 1] are
// reserved and unused (FreeRuns). Neighbouring runs of one row may hold the same value:
// nothing requires them to be joined.
//
// A default-constructed buffer is uninitialised: no block, 0 x 0, no runs. A buffer of a
// size but no pixels (0 x N, N x 0) is initialised and has a block.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>

#include "xnl/std/except/ccException.h"
#include "xnl/std/pelbuf/ccPelBuffer.h"

struct ccRLERun {
    uint8_t value;
    int32_t length;
    bool operator==(const ccRLERun&) const = default;
};
static_assert(sizeof(ccRLERun) == 8 && offsetof(ccRLERun, length) == 4, "ccRLERun must have LuxRLERun's layout");

class ccRLEBufferBuilder;

class ccRLEBuffer {
public:
    using Errors = ccErrorFamily<"ccRLEBuffer">;
    // An impossible request: a negative size, runs that do not add up to the width, a run
    // shorter than 1, more runs than a buffer can hold, a sub-buffer that does not lie
    // inside, spans handed to a builder out of order, an uninitialised buffer asked for
    // its pixels.
    using Degenerate = ccError<Errors, "ccRLEBuffer::Degenerate", 0x10280001>;

    // The most runs a buffer holds (a count of runs travels as a 32-bit integer).
    static constexpr int64_t kMaxRuns = INT32_MAX;

    // Uninitialised.
    ccRLEBuffer() noexcept = default;
    // width x height pixels of one value: one run a row.
    ccRLEBuffer(int32_t width, int32_t height, uint8_t value);
    // The runs of equal pixels of `image`, row by row (ccPel::UnboundWindow when unbound).
    explicit ccRLEBuffer(const ccPelBuffer_const<uint8_t>& image);
    // A buffer of the given runs, checked: every length at least 1, each row's lengths
    // adding up to exactly the width (Degenerate otherwise, before anything is allocated).
    static ccRLEBuffer FromRuns(int32_t width, int32_t height, std::span<const ccRLERun> runs);

    ccRLEBuffer(const ccRLEBuffer& other) noexcept;
    ccRLEBuffer(ccRLEBuffer&& other) noexcept : rep_(other.rep_) { other.rep_ = nullptr; }
    ccRLEBuffer& operator=(const ccRLEBuffer& other) noexcept;
    ccRLEBuffer& operator=(ccRLEBuffer&& other) noexcept;
    ~ccRLEBuffer();

    bool IsInitialized() const noexcept { return rep_ != nullptr; }
    int32_t Width() const noexcept;
    int32_t Height() const noexcept;
    int32_t NumRuns() const noexcept;
    // Runs reserved beyond NumRuns.
    int32_t FreeRuns() const noexcept;
    // Makes room for `totalRuns` runs in all (a block of this buffer's own afterwards).
    // Degenerate on an uninitialised buffer or beyond kMaxRuns.
    void Reserve(int64_t totalRuns);

    // All runs, and the runs of row y (0 <= y < Height, not checked).
    std::span<const ccRLERun> Runs() const noexcept;
    std::span<const ccRLERun> Row(int32_t y) const noexcept;
    // The run array for writing values in place (lengths must keep adding up): the block
    // becomes this buffer's own first. Null when uninitialised.
    ccRLERun* MutableRuns();

    // The pixel (x, y), 0 <= x < Width, 0 <= y < Height (ccPel::BadCoord otherwise).
    uint8_t Pixel(int32_t x, int32_t y) const;
    // Whether every run's value is 0 or 255 (an uninitialised buffer: Degenerate).
    bool Binary() const;

    // Writes pixel (x, y) of the buffer to pixel (x + dx, y + dy) of `image`; pixels that
    // fall outside the image are left out, and with `transparent` runs of that value leave
    // the image's pixels as they are. Degenerate when uninitialised.
    void Expand(const ccPelBuffer<uint8_t>& image, int32_t dx, int32_t dy,
                std::optional<uint8_t> transparent = std::nullopt) const;
    // A new image of Width x Height holding the pixels (Degenerate when uninitialised or
    // of no pixels).
    ccPelBuffer<uint8_t> Expand() const;

    // The same runs, each value v replaced by table[v].
    ccRLEBuffer PixelMap(std::span<const uint8_t, 256> table) const;
    // This buffer's pixels, where `sub`, placed with its top-left pixel at (subX, subY) of
    // this buffer, has a value s other than `transparent`, overwritten by map[s]. `sub`
    // must lie inside this buffer (Degenerate otherwise). In rows that `sub` covers,
    // neighbouring runs of equal value come out joined; other rows are copied as they are.
    ccRLEBuffer Combine(const ccRLEBuffer& sub, int32_t subX, int32_t subY, std::span<const uint8_t, 256> map,
                        std::optional<uint8_t> transparent = std::nullopt) const;

    // The same size and the same runs (not merely the same pixels: runs split differently
    // compare unequal). Two uninitialised buffers are equal.
    bool operator==(const ccRLEBuffer& other) const noexcept;
    // The same size and the same pixels, however the runs are split.
    bool SamePixels(const ccRLEBuffer& other) const noexcept;

    // Appends runs to a block under construction: the builder's and the operations' tool.
    // Rows are started in order; each row's runs must add up to the width before the next
    // row starts (not checked here: callers keep it).
    class Writer {
    public:
        Writer(int32_t width, int32_t height, int64_t expectedRuns);
        Writer(const Writer&) = delete;
        Writer& operator=(const Writer&) = delete;
        ~Writer();

        // Row y begins at the next run.
        void StartRow(int32_t y) noexcept { rowStarts_[y] = count_; }
        void Append(uint8_t value, int32_t length) {
            if (count_ == capacity_) [[unlikely]]
                Grow(int64_t{count_} + 1);
            Put(runs_ + count_++, value, length);
        }
        // Writes a run as one 8-byte store, its padding zeroed.
        static void Put(ccRLERun* at, uint8_t value, int32_t length) noexcept {
            const uint64_t packed = uint64_t{value} | (uint64_t{static_cast<uint32_t>(length)} << 32);
            std::memcpy(static_cast<void*>(at), &packed, sizeof packed);
        }
        // For appends in bulk: room for `more` runs, the first of them returned; Commit
        // then counts those written.
        ccRLERun* Room(int32_t more) {
            if (int64_t{count_} + more > capacity_) [[unlikely]]
                Grow(int64_t{count_} + more);
            return runs_ + count_;
        }
        void Commit(int32_t written) noexcept { count_ += written; }
        // Row y begins at run `index` (Count() plus the runs written since Room).
        void StartRowAt(int32_t y, int32_t index) noexcept { rowStarts_[y] = index; }
        // Appends, joining a run of the same value that ends the row so far; `rowStart` is
        // the index of the row's first run.
        void AppendJoined(uint8_t value, int32_t length, int32_t rowStart) {
            if (count_ > rowStart && runs_[count_ - 1].value == value) {
                runs_[count_ - 1].length += length;
                return;
            }
            Append(value, length);
        }
        // Runs appended so far.
        int32_t Count() const noexcept { return count_; }
        // Makes room for `more` further runs.
        void Expect(int64_t more) {
            if (int64_t{count_} + more > capacity_) Grow(int64_t{count_} + more);
        }
        // The finished buffer; the writer is empty afterwards. With `trimWaste`, a block
        // that reserved more than twice the runs it holds gives the rest back.
        ccRLEBuffer Finish(bool trimWaste = false) noexcept;

    private:
        void Grow(int64_t needed);

        void* rep_ = nullptr;
        int32_t* rowStarts_ = nullptr;
        ccRLERun* runs_ = nullptr;
        int32_t count_ = 0;
        int32_t capacity_ = 0;
        int32_t height_ = 0;
    };

    // The block behind a buffer (defined below); only this file pair and the builder use it.
    struct Rep;

private:
    friend struct ccRLEBufferBlocks;
    explicit ccRLEBuffer(Rep* rep) noexcept : rep_(rep) {}
    void RequireInitialized(const char* what) const;
    // A block of this buffer's own (copied when shared).
    void MakeUnique();

    Rep* rep_ = nullptr;
};

// The block (see the layout above). Plain data, so that a builder may realloc it; the
// count of holders is changed through std::atomic_ref.
struct ccRLEBuffer::Rep {
    uint32_t holders;
    int32_t width;
    int32_t height;
    int32_t numRuns;
    int32_t capacity;
    int32_t reserved;

    static constexpr size_t RunsOffset(int32_t height) noexcept {
        return (sizeof(Rep) + sizeof(int32_t) * (static_cast<size_t>(height) + 1) + 7) & ~size_t{7};
    }
    int32_t* RowStarts() noexcept { return reinterpret_cast<int32_t*>(this + 1); }
    const int32_t* RowStarts() const noexcept { return reinterpret_cast<const int32_t*>(this + 1); }
    ccRLERun* Runs() noexcept { return reinterpret_cast<ccRLERun*>(reinterpret_cast<char*>(this) + RunsOffset(height)); }
    const ccRLERun* Runs() const noexcept {
        return reinterpret_cast<const ccRLERun*>(reinterpret_cast<const char*>(this) + RunsOffset(height));
    }
};

inline int32_t ccRLEBuffer::Width() const noexcept { return rep_ ? rep_->width : 0; }
inline int32_t ccRLEBuffer::Height() const noexcept { return rep_ ? rep_->height : 0; }
inline int32_t ccRLEBuffer::NumRuns() const noexcept { return rep_ ? rep_->numRuns : 0; }
inline int32_t ccRLEBuffer::FreeRuns() const noexcept { return rep_ ? rep_->capacity - rep_->numRuns : 0; }
inline std::span<const ccRLERun> ccRLEBuffer::Runs() const noexcept {
    if (!rep_) return {};
    return {rep_->Runs(), static_cast<size_t>(rep_->numRuns)};
}
inline std::span<const ccRLERun> ccRLEBuffer::Row(int32_t y) const noexcept {
    const int32_t* starts = rep_->RowStarts();
    return {rep_->Runs() + starts[y], static_cast<size_t>(starts[y + 1] - starts[y])};
}
