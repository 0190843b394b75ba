// libFuzzer target: the PGM/PPM reader on any bytes (see ImageLoaderFuzz.h).
#include "com/image/files/PnmCodec.h"
#include "fuzz/targets/ImageLoaderFuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    tessaly::test::FuzzImageLoader(data, size, tessaly::image::PnmCodec::Read);
    return 0;
}
