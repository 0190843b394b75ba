#include "BenchGadget.h"

#include <cstdlib>

#include "platform/ComObject.h"

namespace tessaly::bench {

namespace {

class BenchGadget : public ComObject<BenchGadget, ITestGadget> {
public:
    static const CoClassInfo& CoClass() { return generated::CoClass_TestGadget; }
    using CoClassInterfaceList = generated::CoClassInterfaceList_TestGadget;
    HRESULT get_Kind(BSTR* value) override {
        *value = nullptr;
        return S_OK;
    }
    HRESULT get_Size(LONG* value) override {
        *value = size_;
        return S_OK;
    }
    HRESULT put_Size(LONG value) override {
        size_ = value;
        return S_OK;
    }
    HRESULT Attach(ITestWidget*, LONG* value) override {
        *value = 0;
        return S_OK;
    }

protected:
    ~BenchGadget() override = default;

private:
    LONG size_ = 0;
};

}  // namespace

ITestGadget* NewBenchGadget() {
    ITestGadget* created = nullptr;
    if (FAILED(BenchGadget::CreateInstance(ITestGadget::iid, reinterpret_cast<void**>(&created)))) std::abort();
    return created;
}

}  // namespace tessaly::bench
