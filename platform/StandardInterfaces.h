// The standard interfaces of the automation runtime, as pure virtual structs in the
// method order automation clients expect. Like their originals they have no data and no
// virtual destructor: objects die through Release.
#pragma once

#include "platform/AutomationTypes.h"

namespace tessaly {
struct InterfaceInfo;
struct CoClassInfo;
struct EnumInfo;
}  // namespace tessaly

struct IUnknown {
    static constexpr IID iid = tessaly::MakeGuid("00000000-0000-0000-C000-000000000046");
    virtual HRESULT QueryInterface(REFIID riid, void** ppv) = 0;
    virtual ULONG AddRef() = 0;
    virtual ULONG Release() = 0;

protected:
    ~IUnknown() = default;
};

// The interface ID of an interface type, as `__uuidof` gives it elsewhere.
template <class Interface>
constexpr const IID& uuidof() {
    return Interface::iid;
}

enum TYPEKIND : int32_t {
    TKIND_ENUM = 0,
    TKIND_RECORD = 1,
    TKIND_MODULE = 2,
    TKIND_INTERFACE = 3,
    TKIND_DISPATCH = 4,
    TKIND_COCLASS = 5,
    TKIND_ALIAS = 6,
    TKIND_UNION = 7,
};

// Run-time type information of one interface, dispinterface, enumeration or coclass. The
// descriptions are static tables generated from the IDL; this interface hands them out.
struct ITypeInfo : IUnknown {
    using BaseInterface = IUnknown;
    static constexpr IID iid = tessaly::MakeGuid("00020401-0000-0000-C000-000000000046");
    virtual HRESULT GetTypeKind(TYPEKIND* kind) = 0;
    virtual HRESULT GetName(BSTR* name) = 0;
    virtual HRESULT GetGuid(GUID* guid) = 0;
    // Exactly one of these succeeds, by kind; the others fail with TYPE_E_ELEMENTNOTFOUND.
    virtual HRESULT GetInterfaceInfo(const tessaly::InterfaceInfo** info) = 0;
    virtual HRESULT GetCoClassInfo(const tessaly::CoClassInfo** info) = 0;
    virtual HRESULT GetEnumInfo(const tessaly::EnumInfo** info) = 0;
};

struct IDispatch : IUnknown {
    using BaseInterface = IUnknown;
    static constexpr IID iid = tessaly::MakeGuid("00020400-0000-0000-C000-000000000046");
    virtual HRESULT GetTypeInfoCount(UINT* pctinfo) = 0;
    virtual HRESULT GetTypeInfo(UINT iTInfo, LCID lcid, ITypeInfo** ppTInfo) = 0;
    virtual HRESULT GetIDsOfNames(REFIID riid, LPOLESTR* rgszNames, UINT cNames, LCID lcid, DISPID* rgDispId) = 0;
    virtual HRESULT Invoke(DISPID dispIdMember, REFIID riid, LCID lcid, WORD wFlags, DISPPARAMS* pDispParams,
                           VARIANT* pVarResult, EXCEPINFO* pExcepInfo, UINT* puArgErr) = 0;
};

struct IProvideClassInfo : IUnknown {
    using BaseInterface = IUnknown;
    static constexpr IID iid = tessaly::MakeGuid("B196B283-BAB4-101A-B69C-00AA00341D07");
    virtual HRESULT GetClassInfo(ITypeInfo** ppTI) = 0;
};

constexpr DWORD GUIDKIND_DEFAULT_SOURCE_DISP_IID = 1;

struct IProvideClassInfo2 : IProvideClassInfo {
    using BaseInterface = IProvideClassInfo;
    static constexpr IID iid = tessaly::MakeGuid("A6BC3AC0-DBAA-11CE-9DE3-00AA004BB851");
    virtual HRESULT GetGUID(DWORD dwGuidKind, GUID* pGUID) = 0;
};

struct IConnectionPointContainer;

struct CONNECTDATA {
    IUnknown* pUnk;
    DWORD dwCookie;
};

struct IEnumConnections : IUnknown {
    using BaseInterface = IUnknown;
    static constexpr IID iid = tessaly::MakeGuid("B196B287-BAB4-101A-B69C-00AA00341D07");
    virtual HRESULT Next(ULONG cConnections, CONNECTDATA* rgcd, ULONG* pcFetched) = 0;
    virtual HRESULT Skip(ULONG cConnections) = 0;
    virtual HRESULT Reset() = 0;
    virtual HRESULT Clone(IEnumConnections** ppEnum) = 0;
};

struct IConnectionPoint : IUnknown {
    using BaseInterface = IUnknown;
    static constexpr IID iid = tessaly::MakeGuid("B196B286-BAB4-101A-B69C-00AA00341D07");
    virtual HRESULT GetConnectionInterface(IID* pIID) = 0;
    virtual HRESULT GetConnectionPointContainer(IConnectionPointContainer** ppCPC) = 0;
    virtual HRESULT Advise(IUnknown* pUnkSink, DWORD* pdwCookie) = 0;
    virtual HRESULT Unadvise(DWORD dwCookie) = 0;
    virtual HRESULT EnumConnections(IEnumConnections** ppEnum) = 0;
};

struct IEnumConnectionPoints : IUnknown {
    using BaseInterface = IUnknown;
    static constexpr IID iid = tessaly::MakeGuid("B196B285-BAB4-101A-B69C-00AA00341D07");
    virtual HRESULT Next(ULONG cConnections, IConnectionPoint** ppCP, ULONG* pcFetched) = 0;
    virtual HRESULT Skip(ULONG cConnections) = 0;
    virtual HRESULT Reset() = 0;
    virtual HRESULT Clone(IEnumConnectionPoints** ppEnum) = 0;
};

struct IConnectionPointContainer : IUnknown {
    using BaseInterface = IUnknown;
    static constexpr IID iid = tessaly::MakeGuid("B196B284-BAB4-101A-B69C-00AA00341D07");
    virtual HRESULT EnumConnectionPoints(IEnumConnectionPoints** ppEnum) = 0;
    virtual HRESULT FindConnectionPoint(REFIID riid, IConnectionPoint** ppCP) = 0;
};

struct IEnumVARIANT : IUnknown {
    using BaseInterface = IUnknown;
    static constexpr IID iid = tessaly::MakeGuid("00020404-0000-0000-C000-000000000046");
    virtual HRESULT Next(ULONG celt, VARIANT* rgVar, ULONG* pCeltFetched) = 0;
    virtual HRESULT Skip(ULONG celt) = 0;
    virtual HRESULT Reset() = 0;
    virtual HRESULT Clone(IEnumVARIANT** ppEnum) = 0;
};

// Seek origins.
constexpr DWORD STREAM_SEEK_SET = 0;
constexpr DWORD STREAM_SEEK_CUR = 1;
constexpr DWORD STREAM_SEEK_END = 2;

// Stat flags and storage types.
constexpr DWORD STATFLAG_DEFAULT = 0;
constexpr DWORD STATFLAG_NONAME = 1;
constexpr DWORD STGTY_STREAM = 2;
constexpr DWORD STGTY_LOCKBYTES = 3;

struct STATSTG {
    LPOLESTR pwcsName;  // allocated with SysAllocString; the caller frees it
    DWORD type;
    ULONGLONG cbSize;
    DWORD grfMode;
};

struct ISequentialStream : IUnknown {
    using BaseInterface = IUnknown;
    static constexpr IID iid = tessaly::MakeGuid("0C733A30-2A1C-11CE-ADE5-00AA0044773D");
    virtual HRESULT Read(void* pv, ULONG cb, ULONG* pcbRead) = 0;
    virtual HRESULT Write(const void* pv, ULONG cb, ULONG* pcbWritten) = 0;
};

struct IStream : ISequentialStream {
    using BaseInterface = ISequentialStream;
    static constexpr IID iid = tessaly::MakeGuid("0000000C-0000-0000-C000-000000000046");
    virtual HRESULT Seek(LONGLONG dlibMove, DWORD dwOrigin, ULONGLONG* plibNewPosition) = 0;
    virtual HRESULT SetSize(ULONGLONG libNewSize) = 0;
    virtual HRESULT CopyTo(IStream* pstm, ULONGLONG cb, ULONGLONG* pcbRead, ULONGLONG* pcbWritten) = 0;
    virtual HRESULT Commit(DWORD grfCommitFlags) = 0;
    virtual HRESULT Revert() = 0;
    virtual HRESULT LockRegion(ULONGLONG libOffset, ULONGLONG cb, DWORD dwLockType) = 0;
    virtual HRESULT UnlockRegion(ULONGLONG libOffset, ULONGLONG cb, DWORD dwLockType) = 0;
    virtual HRESULT Stat(STATSTG* pstatstg, DWORD grfStatFlag) = 0;
    virtual HRESULT Clone(IStream** ppstm) = 0;
};

// Marshalling contexts: where the marshalled interface is unmarshalled.
enum : DWORD {
    MSHCTX_LOCAL = 0,             // another process on this machine
    MSHCTX_NOSHAREDMEM = 1,       // no memory shared with the destination
    MSHCTX_DIFFERENTMACHINE = 2,  // another machine
    MSHCTX_INPROC = 3,            // another apartment of this process
};

// Custom marshalling: an object that writes itself into a stream for another apartment,
// process or machine, and the object of its unmarshal class that reads it back.
struct IMarshal : IUnknown {
    using BaseInterface = IUnknown;
    static constexpr IID iid = tessaly::MakeGuid("00000003-0000-0000-C000-000000000046");
    virtual HRESULT GetUnmarshalClass(REFIID riid, void* pv, DWORD dwDestContext, void* pvDestContext,
                                      DWORD mshlflags, CLSID* pCid) = 0;
    virtual HRESULT GetMarshalSizeMax(REFIID riid, void* pv, DWORD dwDestContext, void* pvDestContext,
                                      DWORD mshlflags, DWORD* pSize) = 0;
    virtual HRESULT MarshalInterface(IStream* pStm, REFIID riid, void* pv, DWORD dwDestContext, void* pvDestContext,
                                     DWORD mshlflags) = 0;
    virtual HRESULT UnmarshalInterface(IStream* pStm, REFIID riid, void** ppv) = 0;
    virtual HRESULT ReleaseMarshalData(IStream* pStm) = 0;
    virtual HRESULT DisconnectObject(DWORD dwReserved) = 0;
};

struct IPersist : IUnknown {
    using BaseInterface = IUnknown;
    static constexpr IID iid = tessaly::MakeGuid("0000010C-0000-0000-C000-000000000046");
    virtual HRESULT GetClassID(CLSID* pClassID) = 0;
};

// An object that saves itself as a block of bytes; formatters embed the block.
struct IPersistStream : IPersist {
    using BaseInterface = IPersist;
    static constexpr IID iid = tessaly::MakeGuid("00000109-0000-0000-C000-000000000046");
    virtual HRESULT IsDirty() = 0;  // S_OK when changed since the last save, S_FALSE when not
    virtual HRESULT Load(IStream* pStm) = 0;
    virtual HRESULT Save(IStream* pStm, BOOL fClearDirty) = 0;
    virtual HRESULT GetSizeMax(ULONGLONG* pcbSize) = 0;
};

struct IErrorInfo : IUnknown {
    using BaseInterface = IUnknown;
    static constexpr IID iid = tessaly::MakeGuid("1CF2B120-547D-101B-8E65-08002B2BD119");
    virtual HRESULT GetGUID(GUID* pGUID) = 0;
    virtual HRESULT GetSource(BSTR* pBstrSource) = 0;
    virtual HRESULT GetDescription(BSTR* pBstrDescription) = 0;
    virtual HRESULT GetHelpFile(BSTR* pBstrHelpFile) = 0;
    virtual HRESULT GetHelpContext(DWORD* pdwHelpContext) = 0;
};

struct ISupportErrorInfo : IUnknown {
    using BaseInterface = IUnknown;
    static constexpr IID iid = tessaly::MakeGuid("DF0B3D60-548F-101B-8E65-08002B2BD119");
    virtual HRESULT InterfaceSupportsErrorInfo(REFIID riid) = 0;
};

struct IClassFactory : IUnknown {
    using BaseInterface = IUnknown;
    static constexpr IID iid = tessaly::MakeGuid("00000001-0000-0000-C000-000000000046");
    virtual HRESULT CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** ppvObject) = 0;
    virtual HRESULT LockServer(int32_t fLock) = 0;
};
