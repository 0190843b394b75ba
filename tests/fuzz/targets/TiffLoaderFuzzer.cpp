// libFuzzer target: the TIFF reader on any bytes (see ImageLoaderFuzz.h).
#include "com/image/files/TiffCodec.h"
#include "fuzz/targets/ImageLoaderFuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    tessaly::test::FuzzImageLoader(data, size, tessaly::image::TiffCodec::Read);
    return 0;
}
