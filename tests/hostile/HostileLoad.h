// Loading untrusted bytes the way the hostile-input tests and the fuzz targets do, and
// checking what every load must leave behind: a success, or a failure HRESULT with error
// info; and, once the loaded graph is released, no object of the library still alive.
//
// A graph may hold cycles (a collection that holds itself), which reference counts alone
// never free; a client empties the graph with ClearObjectGraph before letting go, and so
// does Release here.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "TessalyCore.h"
#include "platform/ComPtr.h"

namespace tessaly::test {

struct LoadOutcome {
    HRESULT result = S_OK;
    bool errorInfo = false;  // the load left error info
    std::string description;
    int32_t leftAlive = 0;   // objects still alive after the release, beyond those before the load

    // What every load must give: S_OK, or a failure described by error info (out of
    // memory reports none, by design); and nothing left alive.
    bool Clean() const noexcept {
        return leftAlive == 0 && (SUCCEEDED(result) || errorInfo || result == E_OUTOFMEMORY);
    }
    std::string Describe() const;
};

class HostileLoad {
public:
    // LoadObjectFromBytes with `format`, then Release of what it loaded.
    static LoadOutcome Run(std::span<const uint8_t> bytes, int32_t format);

    // Run, for a fuzz target: prints the outcome and aborts unless it is Clean, so that
    // the fuzzer records the input.
    static void RunOrAbort(std::span<const uint8_t> bytes, int32_t format) noexcept;

    // Empties every object reachable from `root` (ClearObjectGraph), then releases it.
    static void Release(ComPtr<IDispatch> root) noexcept;
};

}  // namespace tessaly::test
