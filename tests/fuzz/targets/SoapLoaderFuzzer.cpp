// libFuzzer target: the SOAP loader on any bytes. Each input must load or fail with error
// info, and leave no object alive once its graph is released.
#include <cstddef>
#include <cstdint>

#include "TessalyCore.h"
#include "hostile/HostileLoad.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    tessaly::test::HostileLoad::RunOrAbort({data, size}, luxPersistFormatSoap);
    return 0;
}
