// What a simulated grabber shares with the sources of its FIFOs: the frame time, the
// frames still to drop, the image folder's files, and which sources are open on which
// camera port (so that a hardware trigger on a port reaches them, and a port is opened
// once). The folder and the sources are under the mutex; a source reads the rest without
// it, since it never takes the mutex while holding its own lock (the grabber takes its
// mutex first, then a source's lock, to trigger it).
#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <vector>

namespace tessaly::acq {

class SimulatedFrameSource;

struct SimulatedGrabberState {
    std::mutex mutex;
    std::atomic<double> frameTimeMs{0.0};
    std::atomic<int64_t> framesToDrop{0};
    std::filesystem::path folder;                                           // empty: the test pattern
    std::shared_ptr<const std::vector<std::filesystem::path>> folderFiles;  // in name order
    std::atomic<uint64_t> folderCursor{0};                                  // the next file, counted over every source
    std::vector<SimulatedFrameSource*> sources;
};

}  // namespace tessaly::acq
