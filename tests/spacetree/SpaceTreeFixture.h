// What the space tree tests share: trees and transforms made as a client makes them, a sink
// that logs the tree's events, a dump of a tree's names and transforms (what a refused call
// must leave as it was), and the checks of a refusal: the exact HRESULT, the message that
// opens the description, the source.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "TessalyCore.h"
#include "com/core/MessageTable.h"
#include "core/CollectionFixture.h"
#include "support/LiveObjectFixture.h"
#include "support/RecordedError.h"

namespace tessaly::test {

class SpaceTreeFixture : public LiveObjectFixture {
public:
    static ComPtr<ILuxCoordinateSpaceTree> NewTree() {
        return Make<ILuxCoordinateSpaceTree>("Tessaly.LuxCoordinateSpaceTree");
    }
    static ComPtr<ILuxTransform2DLinear> Linear(double m00, double m01, double m10, double m11, double tx,
                                                double ty) {
        auto linear = Make<ILuxTransform2DLinear>("Tessaly.LuxTransform2DLinear");
        EXPECT_EQ(linear->SetMatrixElementsTranslation(m00, m01, m10, m11, tx, ty), S_OK);
        return linear;
    }
    static ComPtr<ILuxTransform2DLinear> Shift(double tx, double ty) { return Linear(1, 0, 0, 1, tx, ty); }
    static ComPtr<ILuxTransform2D> Base(IUnknown* object) {
        ComPtr<ILuxTransform2D> base;
        EXPECT_EQ(object->QueryInterface(IID_ILuxTransform2D, base.OutVoid()), S_OK);
        return base;
    }

    // AddSpace with the defaults a client leaves out (a copy; duplicates are errors).
    static HRESULT Add(ILuxCoordinateSpaceTree* tree, const char* parent, const char* name,
                       IUnknown* transform = nullptr, bool copy = true,
                       LuxAddSpaceConstants duplicates = luxAddSpaceDuplicateIsError) {
        return tree->AddSpace(Bstr(parent).get(), Bstr(name).get(), transform ? Base(transform).get() : nullptr,
                              copy ? VARIANT_TRUE : VARIANT_FALSE, duplicates);
    }

    // A sink advised on the tree's events; the tree keeps it alive. Entries read
    // "id(args)", Change as "7456(state,value,areas)".
    static ComPtr<TestSink> Listen(IUnknown* tree) {
        auto sink = ComPtr<TestSink>::Attach(TestSink::Create());
        DWORD cookie = 0;
        EXPECT_EQ(Advise(tree, DIID_ILuxCoordinateSpaceTreeEvents, static_cast<IDispatch*>(sink.get()), &cookie),
                  S_OK);
        return sink;
    }

    static std::string Lookup(ILuxCoordinateSpaceTree* tree, const char* name,
                              LuxSpaceTreePathnameConstants format = luxSpaceTreePathnameFull) {
        Bstr found;
        const HRESULT hr = tree->LookUpName(Bstr(name).get(), format, found.Out());
        return SUCCEEDED(hr) ? found.str() : "failed " + std::to_string(hr);
    }
    static std::string Parent(ILuxCoordinateSpaceTree* tree, const char* name,
                              LuxSpaceTreePathnameConstants format = luxSpaceTreePathnameFull) {
        Bstr found;
        const HRESULT hr = tree->ParentName(Bstr(name).get(), format, found.Out());
        return SUCCEEDED(hr) ? found.str() : "failed " + std::to_string(hr);
    }
    // A string collection as "a|b|c".
    static std::string Joined(ILuxStringCollection* names) {
        LONG count = -1;
        EXPECT_EQ(names->get_Count(&count), S_OK);
        std::string text;
        for (LONG i = 0; i < count; ++i) {
            Bstr item;
            EXPECT_EQ(names->get_Item(Variant(i).get(), item.Out()), S_OK);
            text += (i ? "|" : "") + item.str();
        }
        return text;
    }
    static std::string All(ILuxCoordinateSpaceTree* tree, const char* name = "^",
                           LuxSpaceTreePathnameConstants format = luxSpaceTreePathnameFull, bool childrenOnly = false) {
        ComPtr<ILuxStringCollection> names;
        const HRESULT hr = tree->AllChildNames(Bstr(name).get(), format, childrenOnly ? VARIANT_TRUE : VARIANT_FALSE,
                                               names.Out());
        return SUCCEEDED(hr) ? Joined(names.get()) : "failed " + std::to_string(hr);
    }

    // The matrix and translation of a linear transform, rounded to 1e-9.
    static std::string Numbers(ILuxTransform2D* transform) {
        ComPtr<ILuxTransform2DLinear> linear;
        if (FAILED(transform->QueryInterface(IID_ILuxTransform2DLinear, linear.OutVoid()))) return "not linear";
        double v[6] = {};
        EXPECT_EQ(linear->GetMatrixElementsTranslation(&v[0], &v[1], &v[2], &v[3], &v[4], &v[5]), S_OK);
        std::string text;
        for (double x : v) {
            char buffer[32];
            std::snprintf(buffer, sizeof buffer, "%.9g", std::abs(x) < 1e-12 ? 0.0 : x);
            text += (text.empty() ? "" : " ") + std::string(buffer);
        }
        return text;
    }
    static std::string TransformText(ILuxCoordinateSpaceTree* tree, const char* to, const char* from) {
        ComPtr<ILuxTransform2D> result;
        const HRESULT hr = tree->GetTransform(Bstr(to).get(), Bstr(from).get(), result.Out());
        return SUCCEEDED(hr) ? Numbers(result.get()) : "failed " + std::to_string(hr);
    }

    // Every space of the tree with its transform from the root: what a refusal leaves alone.
    static std::string Dump(ILuxCoordinateSpaceTree* tree) {
        ComPtr<ILuxStringCollection> names;
        EXPECT_EQ(tree->AllChildNames(Bstr("^").get(), luxSpaceTreePathnameFull, VARIANT_FALSE, names.Out()), S_OK);
        LONG count = 0;
        names->get_Count(&count);
        std::string text;
        for (LONG i = 0; i < count; ++i) {
            Bstr name;
            names->get_Item(Variant(i).get(), name.Out());
            text += name.str() + "=" + TransformText(tree, "^", name.str().c_str()) + ";";
        }
        return text;
    }

    // A refusal: the exact HRESULT, the description opening with the message, the source.
    static void ExpectRefused(HRESULT got, HRESULT expected, int32_t messageId, const char* source,
                              std::vector<std::string> inserts = {}) {
        EXPECT_EQ(got, expected);
        const RecordedError error = TakeErrorInfo();
        EXPECT_TRUE(error.present);
        const std::string message = core::MessageTable::Text(messageId, inserts);
        EXPECT_EQ(error.description.rfind(message, 0), 0u) << error.description << " / expected " << message;
        EXPECT_EQ(error.source, source);
    }
    static void ExpectSyntax(HRESULT got, int32_t messageId, const char* source) {
        ExpectRefused(got, static_cast<HRESULT>(e_LuxSpaceTree_InvalidNameSyntax), messageId, source);
    }
    // A space tree failure that carries its own code's message.
    static void ExpectCode(HRESULT got, int32_t code, const char* source) {
        ExpectRefused(got, static_cast<HRESULT>(code), code, source);
    }

    // A tree @ -> Fixture -> Part, @ -> Camera; Fixture shifted (10, 0), Part rotated by 90
    // degrees and shifted (0, 5), Camera scaled by 2.
    static ComPtr<ILuxCoordinateSpaceTree> Sample() {
        auto tree = NewTree();
        EXPECT_EQ(Add(tree.get(), "@", "Fixture", Shift(10, 0).get()), S_OK);
        EXPECT_EQ(Add(tree.get(), "@\\Fixture", "Part", Linear(0, -1, 1, 0, 0, 5).get()), S_OK);
        EXPECT_EQ(Add(tree.get(), "@", "Camera", Linear(2, 0, 0, 2, 0, 0).get()), S_OK);
        return tree;
    }
};

}  // namespace tessaly::test
