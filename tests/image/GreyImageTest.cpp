// The grey images of both widths through their interfaces, as a client uses them: sizes
// and their refusals, pixels and their refusals, sharing versus copying, roots held by
// several images, pixel memory through the image, Encoding, and persistence of pixels and
// spaces in both formats.
#include <type_traits>

#include "com/core/ObjectPersistence.h"
#include "image/ImageFixture.h"

namespace tessaly::test {
namespace {

template <class W>
class GreyImageTest : public ImageFixture {
public:
    using Image = typename W::Image;

    static ComPtr<Image> NewImage() { return Make<Image>(W::kImage); }
    // The root the image holds (the image keeps it alive), or null.
    static typename W::Root* GetRoot(Image* image) {
        ComPtr<typename W::Root> root;
        EXPECT_EQ(image->GetRoot(root.Out()), S_OK);
        return root.get();
    }
    static LONG Get(Image* image, LONG x, LONG y) {
        LONG value = -1;
        EXPECT_EQ(image->get_Pixel(x, y, &value), S_OK);
        return value;
    }
    static std::pair<LONG, LONG> Size(IUnknown* image) {
        std::pair<LONG, LONG> size{-1, -1};
        auto base = As<ILuxImage>(image);
        EXPECT_EQ(base->get_Width(&size.first), S_OK);
        EXPECT_EQ(base->get_Height(&size.second), S_OK);
        return size;
    }
    static bool Allocated(IUnknown* image) {
        VARIANT_BOOL allocated = 0;
        EXPECT_EQ(As<ILuxImage>(image)->get_Allocated(&allocated), S_OK);
        return allocated == VARIANT_TRUE;
    }
    // A value that needs every bit of the wider pixel.
    static LONG Value(LONG x, LONG y) { return (x * 7 + y * 13 + 1) * 37 % (W::kMax + 1); }
    static void Fill(Image* image) {
        const auto [width, height] = Size(image);
        for (LONG y = 0; y < height; ++y)
            for (LONG x = 0; x < width; ++x) ASSERT_EQ(image->put_Pixel(x, y, Value(x, y)), S_OK);
    }
    static void ExpectFilled(Image* image) {
        const auto [width, height] = Size(image);
        for (LONG y = 0; y < height; ++y)
            for (LONG x = 0; x < width; ++x) ASSERT_EQ(Get(image, x, y), Value(x, y)) << x << ", " << y;
    }
};
TYPED_TEST_SUITE(GreyImageTest, BothWidths);

TYPED_TEST(GreyImageTest, SizesAndPixelsAndTheirRefusals) {
    const LONG max = TypeParam::kMax;
    auto image = this->NewImage();
    auto base = this->template As<ILuxImage>(image.get());
    auto log = this->Listen(image.get());
    LONG value = 7;
    this->ExpectRefused(image->get_Pixel(0, 0, &value), kNoPixels, "get_Pixel");
    this->ExpectRefused(image->put_Pixel(0, 0, 1), kNoPixels, "put_Pixel");
    for (const auto& [width, height] : {std::pair{0, 480}, {640, 0}, {1000000, 1}, {1, 1000000}, {-1, 5}})
        this->ExpectRefused(base->Allocate(width, height), kAllocateSize, "Allocate");
    EXPECT_FALSE(this->Allocated(image.get()));
    EXPECT_EQ(this->Size(image.get()), (std::pair<LONG, LONG>{0, 0}));
    EXPECT_TRUE(log->empty());

    ASSERT_EQ(base->Allocate(640, 480), S_OK);
    EXPECT_EQ(*log, std::vector<int32_t>{luxState_MoreThanOneStateIDChanged});
    EXPECT_NE(this->GetRoot(image.get()), nullptr);
    EXPECT_EQ(this->Get(image.get(), 639, 479), 0);
    ASSERT_EQ(image->put_Pixel(639, 479, max), S_OK);
    ASSERT_EQ(base->Allocate(640, 480), S_OK);  // the size it has: nothing changes
    this->ExpectRefused(base->Allocate(641, 480), kAllocateSize, "Allocate");
    EXPECT_EQ(this->Size(image.get()), (std::pair<LONG, LONG>{640, 480}));
    EXPECT_EQ(this->Get(image.get(), 639, 479), max);

    for (const auto& [x, y] : {std::pair{640, 0}, {0, 480}, {-1, 0}, {0, -1}}) {
        this->ExpectRefused(image->get_Pixel(x, y, &value), kBadCoord, "get_Pixel");
        this->ExpectRefused(image->put_Pixel(x, y, 1), kBadCoord, "put_Pixel");
    }
    this->ExpectRefused(image->get_Pixel(0, 0, nullptr), E_INVALIDARG, "get_Pixel");
    for (LONG bad : {max + 1, LONG{-1}}) this->ExpectRefused(image->put_Pixel(639, 479, bad), E_INVALIDARG, "put_Pixel");
    EXPECT_EQ(this->Get(image.get(), 639, 479), max);
    // Writing pixels raises nothing.
    EXPECT_EQ(log->size(), 1u);

    ComPtr<ILuxImage> copy;
    this->ExpectRefused(base->CopyBase(luxImageCopyModeCopyPixels, nullptr), E_POINTER, "CopyBase");
    this->ExpectRefused(image->Copy(luxImageCopyModeCopyPixels, nullptr), E_POINTER, "Copy");
    this->ExpectRefused(image->GetRoot(nullptr), E_POINTER, "GetRoot");
    this->ExpectRefused(base->CopyBase(static_cast<LuxImageCopyModeConstants>(3), copy.Out()), E_INVALIDARG,
                        "CopyBase");
    EXPECT_FALSE(copy);

    // The largest width passes the size check.
    auto wide = this->NewImage();
    ASSERT_EQ(this->template As<ILuxImage>(wide.get())->Allocate(999999, 1), S_OK);
    ASSERT_EQ(wide->put_Pixel(999998, 0, max), S_OK);
    EXPECT_EQ(this->Get(wide.get(), 999998, 0), max);
}

TYPED_TEST(GreyImageTest, CopiesShareCopyOrLeaveOutThePixelsAndCopyTheSpaces) {
    auto source = this->NewImage();
    ASSERT_EQ(this->template As<ILuxImage>(source.get())->Allocate(4, 3), S_OK);
    this->Fill(source.get());
    auto tree = this->TreeOf(source.get());
    ASSERT_EQ(this->AddSpace(tree.get(), "Fixture"), S_OK);
    ASSERT_EQ(this->template As<ILuxImage>(source.get())->put_SelectedSpaceName(Bstr("Fixture").get()), S_OK);

    ComPtr<typename TypeParam::Image> shared, copied, bare;
    ASSERT_EQ(source->Copy(luxImageCopyModeSharePixels, shared.Out()), S_OK);
    ASSERT_EQ(source->Copy(luxImageCopyModeCopyPixels, copied.Out()), S_OK);
    ASSERT_EQ(source->Copy(luxImageCopyModeNoPixels, bare.Out()), S_OK);
    ComPtr<IDispatch> cloneObject;
    ASSERT_EQ(this->template As<ILuxObject>(source.get())->Clone(cloneObject.Out()), S_OK);
    auto clone = this->template As<typename TypeParam::Image>(cloneObject.get());

    EXPECT_EQ(this->GetRoot(shared.get()), this->GetRoot(source.get()));
    ASSERT_EQ(shared->put_Pixel(0, 0, 5), S_OK);
    EXPECT_EQ(this->Get(source.get(), 0, 0), 5);
    ASSERT_EQ(source->put_Pixel(0, 0, this->Value(0, 0)), S_OK);
    for (auto* independent : {copied.get(), clone.get()}) {
        EXPECT_NE(this->GetRoot(independent), this->GetRoot(source.get()));
        this->ExpectFilled(independent);
        ASSERT_EQ(independent->put_Pixel(3, 2, 1), S_OK);
        EXPECT_EQ(this->Get(source.get(), 3, 2), this->Value(3, 2));
    }
    EXPECT_FALSE(this->Allocated(bare.get()));

    // Every copy has the spaces, in a tree of its own.
    ASSERT_EQ(this->AddSpace(tree.get(), "Later"), S_OK);
    for (auto* each : {shared.get(), copied.get(), bare.get(), clone.get()}) {
        auto image = this->template As<ILuxImage>(each);
        Bstr name;
        EXPECT_EQ(image->get_SelectedSpaceName(name.Out()), S_OK);
        EXPECT_EQ(name.str(), "Fixture");
        ComPtr<ILuxCoordinateSpaceTree> itsTree;
        ASSERT_EQ(image->get_CoordinateSpaceTree(itsTree.Out()), S_OK);
        EXPECT_NE(itsTree.get(), tree.get());
        Bstr found;
        VARIANT_BOOL unique = VARIANT_FALSE;
        EXPECT_EQ(itsTree->VerifyName(Bstr("Fixture").get(), luxSpaceTreePathnameFull, found.Out(), &unique), S_OK);
        EXPECT_EQ(unique, VARIANT_TRUE);
        EXPECT_EQ(itsTree->VerifyName(Bstr("Later").get(), luxSpaceTreePathnameFull, found.Out(), &unique), S_OK);
        EXPECT_EQ(unique, VARIANT_FALSE);
        TakeErrorInfo();
    }
}

TYPED_TEST(GreyImageTest, ImagesShareARootAndReachItsPixelMemory) {
    auto root = this->template Make<typename TypeParam::Root>(TypeParam::kRoot);
    ASSERT_EQ(this->template As<typename TypeParam::RootBuffer>(root.get())->Initialize(5, 4, 0, 8, nullptr), S_OK);
    auto first = this->NewImage(), second = this->NewImage();
    auto log = this->Listen(first.get());
    ASSERT_EQ(first->SetRoot(root.get()), S_OK);
    ASSERT_EQ(second->SetRoot(root.get()), S_OK);
    EXPECT_EQ(*log, std::vector<int32_t>{luxState_MoreThanOneStateIDChanged});
    EXPECT_EQ(this->Size(first.get()), (std::pair<LONG, LONG>{5, 4}));
    EXPECT_EQ(this->GetRoot(first.get()), root.get());
    ASSERT_EQ(first->put_Pixel(4, 3, TypeParam::kMax), S_OK);
    EXPECT_EQ(this->Get(second.get(), 4, 3), TypeParam::kMax);

    // The image's pixel memory is the root's.
    auto data = this->template As<typename TypeParam::Data>(first.get());
    ComPtr<typename TypeParam::Memory> throughImage, throughRoot;
    ASSERT_EQ(TypeParam::Open(data.get(), 1, 2, 3, 2, throughImage.Out()), S_OK);
    ASSERT_EQ(root->GetRawPixelMemory(luxImageDataModeRead, 1, 2, 3, 2, throughRoot.Out()), S_OK);
    EXPECT_EQ(this->StateOf(throughImage.get()), this->StateOf(throughRoot.get()));
    // The root's refusal is passed on as the root gave it.
    this->ExpectRefused(TypeParam::Open(data.get(), 3, 0, 3, 1, throughImage.Out()), kClipped, "GetRawPixelMemory");
    EXPECT_FALSE(throughImage);

    // Null: not allocated; the other image keeps the root.
    ASSERT_EQ(first->SetRoot(nullptr), S_OK);
    EXPECT_EQ(log->size(), 2u);
    EXPECT_FALSE(this->Allocated(first.get()));
    EXPECT_EQ(this->Size(first.get()), (std::pair<LONG, LONG>{0, 0}));
    EXPECT_EQ(this->GetRoot(first.get()), nullptr);
    LONG value = 0;
    this->ExpectRefused(first->get_Pixel(0, 0, &value), kNoPixels, "get_Pixel");
    EXPECT_EQ(TypeParam::Open(data.get(), 0, 0, 0, 0, throughImage.Out()), kNoPixels);
    TakeErrorInfo();
    EXPECT_EQ(this->Get(second.get(), 4, 3), TypeParam::kMax);
}

TYPED_TEST(GreyImageTest, PersistsPixelsAndSpacesInBothFormats) {
    auto image = this->NewImage();
    auto base = this->template As<ILuxImage>(image.get());
    ASSERT_EQ(base->Allocate(7, 3), S_OK);
    this->Fill(image.get());
    ASSERT_EQ(this->AddSpace(this->TreeOf(image.get()).get(), "Fixture", this->Linear(1, 10, 5).get()), S_OK);
    ASSERT_EQ(base->putref_PixelFromRootTransform(this->Linear(2, 0, 0).get()), S_OK);
    ASSERT_EQ(base->put_SelectedSpaceName(Bstr("Fixture").get()), S_OK);
    if constexpr (std::is_same_v<TypeParam, Grey16>) {
        ASSERT_EQ(image->put_Encoding(luxImage16EncodingGrey12), S_OK);
    }

    for (int32_t options : {luxPersistOptionAll, luxPersistOptionMinimum}) {
        for (int32_t format : {luxPersistFormatBinary, luxPersistFormatXML}) {
            SCOPED_TRACE(std::to_string(options) + " " + std::to_string(format));
            std::vector<uint8_t> bytes;
            ASSERT_EQ(SaveObjectToBytes(this->template As<IDispatch>(image.get()).get(), format, options, &bytes),
                      S_OK);
            ComPtr<IDispatch> object;
            ASSERT_EQ(LoadObjectFromBytes(bytes, format, object.Out()), S_OK);
            auto loaded = this->template As<typename TypeParam::Image>(object.get());
            auto loadedBase = this->template As<ILuxImage>(object.get());
            if (options == luxPersistOptionAll) {
                EXPECT_EQ(this->Size(loaded.get()), (std::pair<LONG, LONG>{7, 3}));
                this->ExpectFilled(loaded.get());
            } else {
                EXPECT_FALSE(this->Allocated(loaded.get()));
            }
            Bstr name;
            EXPECT_EQ(loadedBase->get_SelectedSpaceName(name.Out()), S_OK);
            EXPECT_EQ(name.str(), "Fixture");
            ComPtr<ILuxTransform2D> pixelFromFixture;
            ASSERT_EQ(loadedBase->GetTransform(Bstr("#").get(), Bstr("Fixture").get(), pixelFromFixture.Out()), S_OK);
            double x = 0, y = 0;
            EXPECT_EQ(pixelFromFixture->MapPoint(1, 1, &x, &y), S_OK);
            EXPECT_EQ(std::pair(x, y), std::pair(22.0, 12.0));
            if constexpr (std::is_same_v<TypeParam, Grey16>) {
                LuxImage16EncodingConstants encoding{};
                EXPECT_EQ(loaded->get_Encoding(&encoding), S_OK);
                EXPECT_EQ(encoding, luxImage16EncodingGrey12);
            }
        }
    }
}

using SpacesTest = GreyImageTest<Grey8>;

TEST_F(SpacesTest, SelectedNameTreeAndTransformsBetweenSpaces) {
    auto image = this->NewImage();
    auto base = As<ILuxImage>(image.get());
    auto log = Listen(image.get());
    Bstr name;
    EXPECT_EQ(base->get_SelectedSpaceName(name.Out()), S_OK);
    EXPECT_EQ(name.str(), "#");
    ExpectRefused(base->put_SelectedSpaceName(Bstr("Fixture").get()), kBadSelectedSpaceName, "put_SelectedSpaceName");
    ExpectRefused(base->putref_CoordinateSpaceTree(nullptr), E_INVALIDARG, "put_CoordinateSpaceTree");
    EXPECT_TRUE(log->empty());

    // A change inside the tree is passed on.
    auto tree = TreeOf(image.get());
    ASSERT_EQ(AddSpace(tree.get(), "Fixture", Linear(1, 10, 5).get()), S_OK);
    ASSERT_FALSE(log->empty());
    EXPECT_EQ(log->back(), luxState_SubObjectEvent);
    log->clear();
    ASSERT_EQ(base->put_SelectedSpaceName(Bstr("Fixture").get()), S_OK);
    ASSERT_EQ(base->put_SelectedSpaceName(Bstr("Fixture").get()), S_OK);
    EXPECT_EQ(*log, std::vector<int32_t>{luxImage_SelectedSpaceName});

    // Leftmost acts last: fixture to root (+10, +5), then root to pixels (x 2).
    ASSERT_EQ(base->putref_PixelFromRootTransform(Linear(2, 0, 0).get()), S_OK);
    ComPtr<ILuxTransform2D> pixelFromFixture, fixtureFromPixel;
    ASSERT_EQ(base->GetTransform(Bstr("#").get(), Bstr("Fixture").get(), pixelFromFixture.Out()), S_OK);
    ASSERT_EQ(base->GetTransform(Bstr("Fixture").get(), Bstr("#").get(), fixtureFromPixel.Out()), S_OK);
    double x = 0, y = 0;
    EXPECT_EQ(pixelFromFixture->MapPoint(1, 1, &x, &y), S_OK);
    EXPECT_EQ(std::pair(x, y), std::pair(22.0, 12.0));
    EXPECT_EQ(fixtureFromPixel->MapPoint(22, 12, &x, &y), S_OK);
    EXPECT_EQ(std::pair(x, y), std::pair(1.0, 1.0));

    // Another tree: its own event; the old tree's changes no longer reach the image.
    auto other = Make<ILuxCoordinateSpaceTree>("Tessaly.LuxCoordinateSpaceTree");
    log->clear();
    ASSERT_EQ(base->putref_CoordinateSpaceTree(other.get()), S_OK);
    ASSERT_EQ(base->putref_CoordinateSpaceTree(other.get()), S_OK);
    EXPECT_EQ(*log, std::vector<int32_t>{luxImage_CoordinateSpaceTree});
    ASSERT_EQ(AddSpace(tree.get(), "Gone"), S_OK);
    EXPECT_EQ(log->size(), 1u);
    ExpectRefused(base->put_SelectedSpaceName(Bstr("Gone").get()), kBadSelectedSpaceName, "put_SelectedSpaceName");
    EXPECT_EQ(base->get_SelectedSpaceName(name.Out()), S_OK);
    EXPECT_EQ(name.str(), "Fixture");  // checked when set, not when the tree changes
    EXPECT_EQ(log->size(), 1u);
}

using EncodingTest = GreyImageTest<Grey16>;

TEST_F(EncodingTest, EncodingIsALabelThatNeverChangesAPixel) {
    auto image = NewImage();
    ASSERT_EQ(As<ILuxImage>(image.get())->Allocate(2, 1), S_OK);
    ASSERT_EQ(image->put_Pixel(1, 0, 65535), S_OK);
    auto log = Listen(image.get());
    LuxImage16EncodingConstants encoding{};
    EXPECT_EQ(image->get_Encoding(&encoding), S_OK);
    EXPECT_EQ(encoding, luxImage16EncodingGrey16);
    for (int bad : {0, 6, -1})
        ExpectRefused(image->put_Encoding(static_cast<LuxImage16EncodingConstants>(bad)), E_INVALIDARG, "put_Encoding");
    ASSERT_EQ(image->put_Encoding(luxImage16EncodingGrey16), S_OK);
    EXPECT_TRUE(log->empty());
    for (int each = luxImage16EncodingGrey10; each <= luxImage16EncodingGrey8; ++each)
        ASSERT_EQ(image->put_Encoding(static_cast<LuxImage16EncodingConstants>(each)), S_OK);
    EXPECT_EQ(*log, std::vector<int32_t>(5, luxImage16Grey_Encoding));
    EXPECT_EQ(Get(image.get(), 1, 0), 65535);
    ComPtr<ILuxImage16Grey> copy;
    ASSERT_EQ(image->Copy(luxImageCopyModeNoPixels, copy.Out()), S_OK);
    EXPECT_EQ(copy->get_Encoding(&encoding), S_OK);
    EXPECT_EQ(encoding, luxImage16EncodingGrey8);
}

}  // namespace
}  // namespace tessaly::test
