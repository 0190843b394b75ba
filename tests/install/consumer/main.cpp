// A client of the installed library: uses the runtime and the type library, and checks
// that nothing is left alive.
#include <cstdio>
#include <cstring>

#include "TessalyCore.h"
#include "platform/Bstr.h"
#include "platform/Module.h"

int main() {
    BSTR text = SysAllocString("Tessaly");
    const bool textOk = SysStringLen(text) == 7 && std::strcmp(text, "Tessaly") == 0;
    SysFreeString(text);

    const tessaly::TypeLibraryInfo& library = TessalyCore_TypeLibrary();
    const bool libraryOk = std::strcmp(library.name, "TessalyCore") == 0 && library.enumCount > 0;
    const bool idOk = tessaly::FormatGuid(ILuxObject::iid).size() == 38;

    if (!textOk || !libraryOk || !idOk || DllCanUnloadNow() != S_OK) {
        std::fprintf(stderr, "consumer: unexpected result\n");
        return 1;
    }
    std::printf("consumer: %s with %u enumerations\n", library.name, library.enumCount);
    return 0;
}
