// Saving and loading object graphs against physical limits and peer libraries, in one run:
//  1. a LuxCollection holding one 16 MiB VT_ARRAY|VT_UI1 of random bytes:
//     - binary save into a new MemoryStream and binary load from one, each against a
//       16 MiB memcpy into a freshly allocated buffer, and against cereal's binary archive
//       saving and loading a struct holding the same bytes as a std::vector<uint8_t>
//       through a vector-backed std::ostream / std::istream;
//     - the size of the binary archive above 16 MiB (it should stay within 4 KiB);
//     - XML load against pugixml parsing the same text plus OpenSSL decoding the base64
//       text, and XML save against OpenSSL encoding the bytes plus pugixml saving a
//       document that holds the text (same shape as ours) to a string writer;
//  2. a LuxCollection holding 10,000 small keyed collections: XML load against tinyxml2
//     parsing the same text; our XML save and binary save and load for information;
//  3. SOAP against XML on both subjects: the SOAP document of the graph at most 0.8x the
//     XML one's size and loading in at most 1x its time, the 16 MiB array saved and loaded
//     within 1.25x of XML's times.
// The 16 MiB cases are bound by memory bandwidth, so they are timed by wall clock
// (UseRealTime): what a caller waits for, memory stalls and the kernel's page work included.
// The graph cases are CPU-bound and timed as usual. The summary prints each ratio by wall
// time and by CPU time; the second holds when other work shares the cores and the first
// does not.
//
// Large blocks come from the heap and stay mapped (mallopt: no mmap, no trimming), so that
// the cases compare the work they do, not whether glibc's sliding mmap threshold happened
// to give one of them fresh pages, which cost far more than copying them on a virtual
// machine. --system_heap keeps the allocator's own settings instead, as a client program
// has them.
#include <benchmark/benchmark.h>
#include <cereal/archives/binary.hpp>
#include <cereal/types/vector.hpp>
#include <openssl/evp.h>
#include <tinyxml2.h>

#include <malloc.h>

#include <cstdio>
#include <cstring>
#include <istream>
#include <memory>
#include <ostream>
#include <pugixml.hpp>
#include <span>
#include <string>
#include <vector>

#include "AllocationCounter.h"
#include "ByteStreamBuffer.h"
#include "PersistSubjects.h"
#include "PersistReporter.h"
#include "com/core/ObjectPersistence.h"
#include "platform/ComPtr.h"
#include "platform/MemoryStream.h"

namespace {

using tessaly::ComPtr;
using tessaly::MemoryStream;
using tessaly::bench::AllocationCount;
using tessaly::bench::ByteStreamBuffer;
using tessaly::bench::PersistSubjects;
using tessaly::bench::ReportAllocationsPerCall;

constexpr size_t kArrayBytes = PersistSubjects::kArrayBytes;

// Calls made before the clock starts. Every case is measured in the steady state that a
// program saving and loading again and again reaches, where the allocator hands back memory
// that is already mapped: a fresh page is far dearer than copying it (on a virtual machine
// several microseconds of kernel time), and the first calls of each case would otherwise
// weigh by chance in the few iterations that a slow case gets. A case that keeps needing
// fresh pages in the steady state still pays for them, as it should.
constexpr int kWarmUpCalls = 1;

// `call` returns false once it has failed the benchmark.
template <class Call>
bool WarmUp(Call& call) {
    for (int i = 0; i < kWarmUpCalls; ++i)
        if (!call()) return false;
    return true;
}

template <class Call>
void Timed(benchmark::State& state, Call& call) {
    for (auto _ : state)
        if (!call()) break;
}

template <class Call>
void Measure(benchmark::State& state, Call call) {
    if (WarmUp(call)) Timed(state, call);
}

bool Fail(benchmark::State& state, const std::string& why) {
    state.SkipWithError(why.c_str());
    return false;
}

// The bytes a formatter saved, or the benchmark skipped with the reason there are none.
const std::vector<uint8_t>* SavedOrFail(benchmark::State& state, const PersistSubjects::Saved& saved) {
    if (!saved.bytes.empty()) return &saved.bytes;
    Fail(state, "saving the subject failed: " + saved.failure);
    return nullptr;
}

// Each call saves the whole graph into a new memory stream, as a client saving to memory does.
void SaveEach(benchmark::State& state, IDispatch* object, int32_t format) {
    size_t size = 0;
    auto call = [&] {
        auto stream = ComPtr<MemoryStream>::Attach(MemoryStream::Create());
        const HRESULT result = tessaly::SaveObjectToStream(object, stream.get(), format, luxPersistOptionAll);
        if (FAILED(result)) return Fail(state, PersistSubjects::FailureText(result));
        size = stream->Size();
        benchmark::DoNotOptimize(stream->Data());
        return true;
    };
    if (!WarmUp(call)) return;
    const uint64_t before = AllocationCount();
    Timed(state, call);
    ReportAllocationsPerCall(state, before);
    state.counters["bytes"] = static_cast<double>(size);
}

// Each call loads a new graph from the start of one memory stream and releases it.
void LoadEach(benchmark::State& state, const PersistSubjects::Saved& saved, int32_t format) {
    const std::vector<uint8_t>* bytes = SavedOrFail(state, saved);
    if (!bytes) return;
    ComPtr<IStream> stream;
    if (FAILED(MemoryStream::Create(bytes->data(), bytes->size(), stream.Out()))) {
        Fail(state, "out of memory");
        return;
    }
    auto call = [&] {
        stream->Seek(0, STREAM_SEEK_SET, nullptr);
        IDispatch* object = nullptr;
        const HRESULT result = tessaly::LoadObjectFromStream(stream.get(), format, &object);
        if (FAILED(result)) return Fail(state, PersistSubjects::FailureText(result));
        benchmark::DoNotOptimize(object);
        object->Release();
        return true;
    };
    if (!WarmUp(call)) return;
    const uint64_t before = AllocationCount();
    Timed(state, call);
    ReportAllocationsPerCall(state, before);
}

// ---- 16 MiB array: the physical limit and cereal ------------------------------------

void Memcpy16MiB(benchmark::State& state) {
    const uint8_t* source = PersistSubjects::Get().ArrayBytes().data();
    Measure(state, [&] {
        std::unique_ptr<uint8_t[]> copy(new uint8_t[kArrayBytes]);
        std::memcpy(copy.get(), source, kArrayBytes);
        benchmark::DoNotOptimize(copy.get());
        benchmark::ClobberMemory();
        return true;
    });
}
BENCHMARK(Memcpy16MiB)->UseRealTime();

void BinarySave16MiB(benchmark::State& state) {
    SaveEach(state, PersistSubjects::Get().ArrayCollection(), luxPersistFormatBinary);
}
BENCHMARK(BinarySave16MiB)->UseRealTime();

void BinaryLoad16MiB(benchmark::State& state) {
    LoadEach(state, PersistSubjects::Get().ArrayBinary(), luxPersistFormatBinary);
}
BENCHMARK(BinaryLoad16MiB)->UseRealTime();

struct CerealBlob {
    std::vector<uint8_t> bytes;

    template <class Archive>
    void serialize(Archive& archive) {
        archive(bytes);
    }
};

const CerealBlob& Blob() {
    static const CerealBlob blob{PersistSubjects::Get().ArrayBytes()};
    return blob;
}

std::vector<uint8_t> CerealSave(const CerealBlob& blob) {
    std::vector<uint8_t> bytes;
    ByteStreamBuffer buffer(bytes);
    std::ostream stream(&buffer);
    {
        cereal::BinaryOutputArchive archive(stream);
        archive(blob);
    }
    return bytes;
}

void CerealSave16MiB(benchmark::State& state) {
    const CerealBlob& blob = Blob();
    Measure(state, [&] {
        std::vector<uint8_t> bytes = CerealSave(blob);
        benchmark::DoNotOptimize(bytes.data());
        return true;
    });
}
BENCHMARK(CerealSave16MiB)->UseRealTime();

void CerealLoad16MiB(benchmark::State& state) {
    const std::vector<uint8_t> saved = CerealSave(Blob());
    Measure(state, [&] {
        ByteStreamBuffer buffer{std::span<const uint8_t>(saved)};
        std::istream stream(&buffer);
        CerealBlob blob;
        cereal::BinaryInputArchive archive(stream);
        archive(blob);
        benchmark::DoNotOptimize(blob.bytes.data());
        return true;
    });
}
BENCHMARK(CerealLoad16MiB)->UseRealTime();

// ---- 16 MiB array as XML: pugixml and OpenSSL ----------------------------------------

// Where our XML keeps the base64 text of the array: the element with the longest text,
// found once as a path of element-child positions so that the peers reach it cheaply.
struct Base64Place {
    std::vector<size_t> path;
    size_t length = 0;
};

void FindLongestText(pugi::xml_node node, std::vector<size_t>& path, Base64Place& best) {
    size_t position = 0;
    for (pugi::xml_node child = node.first_child(); child; child = child.next_sibling()) {
        if (child.type() != pugi::node_element) continue;
        path.push_back(position++);
        const size_t length = std::strlen(child.child_value());
        if (length > best.length) best = {path, length};
        FindLongestText(child, path, best);
        path.pop_back();
    }
}

pugi::xml_node Follow(pugi::xml_node node, const std::vector<size_t>& path) {
    for (const size_t position : path) {
        size_t at = 0;
        pugi::xml_node child = node.first_child();
        for (; child; child = child.next_sibling())
            if (child.type() == pugi::node_element && at++ == position) break;
        node = child;
    }
    return node;
}

bool IsLineBreak(char c) { return c == '\n' || c == '\r'; }

// Base64 text to bytes in a new buffer, as OpenSSL offers it: EVP_DecodeBlock for one
// unbroken run of text, the EVP_Decode context when the text is broken into lines.
std::unique_ptr<uint8_t[]> DecodeBase64(const char* text, size_t length, bool lines, size_t* decoded) {
    std::unique_ptr<uint8_t[]> bytes(new uint8_t[length / 4 * 3 + 3]);
    const auto* in = reinterpret_cast<const unsigned char*>(text);
    int total = -1;
    if (!lines) {
        total = EVP_DecodeBlock(bytes.get(), in, static_cast<int>(length));
        // EVP_DecodeBlock counts the padding as bytes.
        if (total >= 0 && length >= 2 && text[length - 1] == '=') total -= text[length - 2] == '=' ? 2 : 1;
    } else {
        EVP_ENCODE_CTX* context = EVP_ENCODE_CTX_new();
        EVP_DecodeInit(context);
        int part = 0, last = 0;
        if (EVP_DecodeUpdate(context, bytes.get(), &part, in, static_cast<int>(length)) >= 0 &&
            EVP_DecodeFinal(context, bytes.get() + part, &last) >= 0)
            total = part + last;
        EVP_ENCODE_CTX_free(context);
    }
    *decoded = total < 0 ? 0 : static_cast<size_t>(total);
    return total < 0 ? nullptr : std::move(bytes);
}

struct StringWriter : pugi::xml_writer {
    std::string text;
    void write(const void* data, size_t size) override { text.append(static_cast<const char*>(data), size); }
};

// The peer's view of our XML text of the array, checked once: the peers decode it to the
// very bytes the collection holds, or they would not be doing our work.
struct XmlPeer {
    const std::vector<uint8_t>* text = nullptr;
    Base64Place place;
    bool lines = false;
    std::string failure;
};

const XmlPeer& ArrayXmlPeer() {
    static const XmlPeer peer = [] {
        XmlPeer made;
        const PersistSubjects::Saved& saved = PersistSubjects::Get().ArrayXml();
        if (saved.bytes.empty()) {
            made.failure = "saving the subject failed: " + saved.failure;
            return made;
        }
        made.text = &saved.bytes;
        pugi::xml_document document;
        if (!document.load_buffer(saved.bytes.data(), saved.bytes.size())) {
            made.failure = "pugixml does not read our XML";
            return made;
        }
        std::vector<size_t> path;
        FindLongestText(document, path, made.place);
        const char* base64 = Follow(document, made.place.path).child_value();
        std::string_view inner(base64, made.place.length);
        while (!inner.empty() && std::strchr(" \t\r\n", inner.front())) inner.remove_prefix(1);
        while (!inner.empty() && std::strchr(" \t\r\n", inner.back())) inner.remove_suffix(1);
        for (const char c : inner) made.lines |= IsLineBreak(c);
        size_t decoded = 0;
        const auto bytes = DecodeBase64(base64, made.place.length, made.lines, &decoded);
        const std::vector<uint8_t>& expected = PersistSubjects::Get().ArrayBytes();
        if (!bytes || decoded != expected.size() || std::memcmp(bytes.get(), expected.data(), decoded) != 0)
            made.failure = "the longest text of our XML does not decode to the array";
        return made;
    }();
    return peer;
}

void XmlLoad16MiB(benchmark::State& state) {
    LoadEach(state, PersistSubjects::Get().ArrayXml(), luxPersistFormatXML);
}
BENCHMARK(XmlLoad16MiB)->UseRealTime();

void PugiParseDecode16MiB(benchmark::State& state) {
    const XmlPeer& peer = ArrayXmlPeer();
    if (!peer.failure.empty()) {
        Fail(state, peer.failure);
        return;
    }
    Measure(state, [&] {
        pugi::xml_document document;
        if (!document.load_buffer(peer.text->data(), peer.text->size())) return Fail(state, "pugixml: parse failed");
        const char* base64 = Follow(document, peer.place.path).child_value();
        size_t decoded = 0;
        const auto bytes = DecodeBase64(base64, std::strlen(base64), peer.lines, &decoded);
        benchmark::DoNotOptimize(bytes.get());
        return true;
    });
}
BENCHMARK(PugiParseDecode16MiB)->UseRealTime();

void XmlSave16MiB(benchmark::State& state) {
    SaveEach(state, PersistSubjects::Get().ArrayCollection(), luxPersistFormatXML);
}
BENCHMARK(XmlSave16MiB)->UseRealTime();

void EncodePugiSave16MiB(benchmark::State& state) {
    const XmlPeer& peer = ArrayXmlPeer();
    if (!peer.failure.empty()) {
        Fail(state, peer.failure);
        return;
    }
    // A document of our shape; each call puts freshly encoded text into it and saves it.
    pugi::xml_document document;
    document.load_buffer(peer.text->data(), peer.text->size());
    pugi::xml_text node = Follow(document, peer.place.path).text();
    const std::vector<uint8_t>& source = PersistSubjects::Get().ArrayBytes();
    size_t size = 0;
    Measure(state, [&] {
        std::unique_ptr<char[]> base64(new char[(source.size() + 2) / 3 * 4 + 1]);
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(base64.get()), source.data(), static_cast<int>(source.size()));
        node.set(base64.get());
        // Room for the whole text up front, as a caller who knows the size would give it:
        // the peer at its best.
        StringWriter writer;
        writer.text.reserve(peer.text->size() + 4096);
        document.save(writer, "", pugi::format_raw, pugi::encoding_utf8);
        size = writer.text.size();
        benchmark::DoNotOptimize(writer.text.data());
        return true;
    });
    state.counters["bytes"] = static_cast<double>(size);
}
BENCHMARK(EncodePugiSave16MiB)->UseRealTime();

// ---- 10,000 small collections ----------------------------------------------------------

void XmlLoadGraph(benchmark::State& state) {
    LoadEach(state, PersistSubjects::Get().GraphXml(), luxPersistFormatXML);
}
BENCHMARK(XmlLoadGraph);

void TinyXml2ParseGraph(benchmark::State& state) {
    const std::vector<uint8_t>* text = SavedOrFail(state, PersistSubjects::Get().GraphXml());
    if (!text) return;
    Measure(state, [&] {
        tinyxml2::XMLDocument document;
        if (document.Parse(reinterpret_cast<const char*>(text->data()), text->size()) != tinyxml2::XML_SUCCESS)
            return Fail(state, std::string("tinyxml2: ") + document.ErrorStr());
        benchmark::DoNotOptimize(document.RootElement());
        return true;
    });
}
BENCHMARK(TinyXml2ParseGraph);

void XmlSaveGraph(benchmark::State& state) {
    SaveEach(state, PersistSubjects::Get().Graph(), luxPersistFormatXML);
}
BENCHMARK(XmlSaveGraph);

void BinarySaveGraph(benchmark::State& state) {
    SaveEach(state, PersistSubjects::Get().Graph(), luxPersistFormatBinary);
}
BENCHMARK(BinarySaveGraph);

void BinaryLoadGraph(benchmark::State& state) {
    LoadEach(state, PersistSubjects::Get().GraphBinary(), luxPersistFormatBinary);
}
BENCHMARK(BinaryLoadGraph);

// ---- SOAP against XML ----------------------------------------------------------------------

void SoapLoad16MiB(benchmark::State& state) {
    LoadEach(state, PersistSubjects::Get().ArraySoap(), luxPersistFormatSoap);
}
BENCHMARK(SoapLoad16MiB)->UseRealTime();

void SoapSave16MiB(benchmark::State& state) {
    SaveEach(state, PersistSubjects::Get().ArrayCollection(), luxPersistFormatSoap);
}
BENCHMARK(SoapSave16MiB)->UseRealTime();

void SoapLoadGraph(benchmark::State& state) {
    LoadEach(state, PersistSubjects::Get().GraphSoap(), luxPersistFormatSoap);
}
BENCHMARK(SoapLoadGraph);

void SoapSaveGraph(benchmark::State& state) {
    SaveEach(state, PersistSubjects::Get().Graph(), luxPersistFormatSoap);
}
BENCHMARK(SoapSaveGraph);

// ---- summary ----------------------------------------------------------------------------

void PrintSizes() {
    const PersistSubjects& subjects = PersistSubjects::Get();
    const size_t binary = subjects.ArrayBinary().bytes.size();
    if (binary) {
        const long long over = static_cast<long long>(binary) - static_cast<long long>(kArrayBytes);
        std::printf("binary archive of the array: 16 MiB %+lld bytes (target: at most +4096) %s\n", over,
                    over <= 4096 ? "ok" : "MISSED");
    }
    std::printf("XML of the array: %zu bytes; graph: XML %zu bytes, binary %zu bytes\n",
                subjects.ArrayXml().bytes.size(), subjects.GraphXml().bytes.size(),
                subjects.GraphBinary().bytes.size());
    const size_t xml = subjects.GraphXml().bytes.size();
    const size_t soap = subjects.GraphSoap().bytes.size();
    if (xml && soap) {
        const double ratio = static_cast<double>(soap) / static_cast<double>(xml);
        std::printf("SOAP of the graph: %zu bytes, %.3fx the XML (target: at most 0.8x) %s; of the array: %zu bytes\n",
                    soap, ratio, ratio <= 0.8 ? "ok" : "MISSED", subjects.ArraySoap().bytes.size());
    }
}

}  // namespace

// Takes --system_heap out of the arguments; true when it was there.
bool TakeSystemHeapFlag(int& argc, char** argv) {
    bool found = false;
    int kept = 1;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--system_heap") == 0)
            found = true;
        else
            argv[kept++] = argv[i];
    }
    argc = kept;
    return found;
}

int main(int argc, char** argv) {
    const bool systemHeap = TakeSystemHeapFlag(argc, argv);
    if (!systemHeap) {
        mallopt(M_MMAP_MAX, 0);
        mallopt(M_TRIM_THRESHOLD, INT32_MAX);
    }
    PersistSubjects::Get();  // made before the clock starts, and before the table
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    tessaly::bench::PersistReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    std::printf("\nHeap: %s\n", systemHeap ? "the allocator's own settings (--system_heap)"
                                         : "large blocks from the heap, kept mapped");
    std::printf("16 MiB VT_ARRAY|VT_UI1 (targets: binary <= 1.25x memcpy and <= 1x cereal):\n");
    reporter.PrintRatios("BinarySave16MiB/real_time", "Memcpy16MiB/real_time");
    reporter.PrintRatios("BinaryLoad16MiB/real_time", "Memcpy16MiB/real_time");
    reporter.PrintRatios("BinarySave16MiB/real_time", "CerealSave16MiB/real_time");
    reporter.PrintRatios("BinaryLoad16MiB/real_time", "CerealLoad16MiB/real_time");
    std::printf("16 MiB as XML (targets: <= 1x pugixml with OpenSSL base64):\n");
    reporter.PrintRatios("XmlLoad16MiB/real_time", "PugiParseDecode16MiB/real_time");
    reporter.PrintRatios("XmlSave16MiB/real_time", "EncodePugiSave16MiB/real_time");
    std::printf("16 MiB XML save (target: <= 1x OpenSSL encode plus pugixml save): see above\n");
    std::printf("10,000 small collections (targets: XML load <= 1x, binary load <= 0.5x tinyxml2 parse):\n");
    reporter.PrintRatios("XmlLoadGraph", "TinyXml2ParseGraph");
    reporter.PrintRatios("BinaryLoadGraph", "TinyXml2ParseGraph");
    std::printf("SOAP against XML (targets: graph load <= 1x, 16 MiB save and load <= 1.25x):\n");
    reporter.PrintRatios("SoapLoadGraph", "XmlLoadGraph");
    reporter.PrintRatios("SoapSave16MiB/real_time", "XmlSave16MiB/real_time");
    reporter.PrintRatios("SoapLoad16MiB/real_time", "XmlLoad16MiB/real_time");
    reporter.PrintRatios("SoapSaveGraph", "XmlSaveGraph");
    PrintSizes();
    PersistSubjects::Discard();
    return 0;
}
