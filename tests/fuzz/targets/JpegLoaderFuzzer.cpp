// libFuzzer target: the JPEG reader on any bytes (see ImageLoaderFuzz.h).
#include "com/image/files/JpegCodec.h"
#include "fuzz/targets/ImageLoaderFuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    tessaly::test::FuzzImageLoader(data, size, tessaly::image::JpegCodec::Read);
    return 0;
}
