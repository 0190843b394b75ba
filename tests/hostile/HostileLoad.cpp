#include "hostile/HostileLoad.h"

#include <cinttypes>
#include <cstdio>
#include <cstdlib>

#include "com/core/ObjectPersistence.h"
#include "platform/Bstr.h"
#include "platform/ErrorInfo.h"
#include "platform/Module.h"

namespace tessaly::test {

std::string LoadOutcome::Describe() const {
    char code[16];
    std::snprintf(code, sizeof code, "0x%08" PRIX32, static_cast<uint32_t>(result));
    return std::string(code) + (errorInfo ? " \"" + description + "\"" : " (no error info)") +
           (leftAlive ? ", " + std::to_string(leftAlive) + " objects left alive" : "");
}

void HostileLoad::Release(ComPtr<IDispatch> root) noexcept {
    if (!root) return;
    ClearObjectGraph(root.get());  // out of memory: the graph is released as it stands
    ClearErrorInfo();
}

LoadOutcome HostileLoad::Run(std::span<const uint8_t> bytes, int32_t format) {
    const LONG before = Module::LiveObjectCount();
    ClearErrorInfo();
    LoadOutcome outcome;
    {
        ComPtr<IDispatch> root;
        outcome.result = LoadObjectFromBytes(bytes, format, root.Out());
        ComPtr<IErrorInfo> info;
        if (GetErrorInfo(0, info.Out()) == S_OK && info) {
            outcome.errorInfo = true;
            Bstr description;
            info->GetDescription(description.Out());
            outcome.description = description.str();
        }
        Release(std::move(root));
    }
    outcome.leftAlive = Module::LiveObjectCount() - before;
    return outcome;
}

}  // namespace tessaly::test

namespace tessaly::test {

void HostileLoad::RunOrAbort(std::span<const uint8_t> bytes, int32_t format) noexcept {
    LoadOutcome outcome;
    try {
        outcome = Run(bytes, format);
    } catch (...) {
        std::fprintf(stderr, "HostileLoad: an exception left the load\n");
        std::abort();
    }
    if (outcome.Clean()) return;
    std::fprintf(stderr, "HostileLoad: an unclean load: %s\n", outcome.Describe().c_str());
    std::abort();
}

}  // namespace tessaly::test
