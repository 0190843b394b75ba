// The class object of one creatable class, as DllGetClassObject hands it out: it makes
// new objects through the class table's factory function and holds the server in memory
// while a client has locked it.
#pragma once

#include "platform/ClassTable.h"
#include "platform/UnknownObject.h"

namespace tessaly {

class ClassFactory : public UnknownObject<ClassFactory, IClassFactory> {
public:
    explicit ClassFactory(const ClassEntry& entry) noexcept : entry_(entry) {}

    // Aggregation is not supported: a non-null outer object gets CLASS_E_NOAGGREGATION.
    HRESULT CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** ppvObject) override;
    HRESULT LockServer(int32_t fLock) override;

protected:
    ~ClassFactory() override = default;

private:
    ClassEntry entry_;
};

}  // namespace tessaly
