// The root of the library's exceptions. The core throws them; the method guard of the
// automation layer turns them into HRESULTs and error texts. Each exception class names
// itself ("ccArchive::Eof": the class name is the message) and reports one numeric code,
// the key under which the guard's table finds its HRESULT and text.
//
// Classes come in families: a family is a class `Errors` derived from ccException,
// nested in (or named after) the class whose failures it groups, and each failure is a
// class derived from that family's Errors:
//
//     class ccArchive {
//     public:
//         using Errors = ccErrorFamily<"ccArchive">;
//         using Eof = ccError<Errors, "ccArchive::Eof", 0x10010001>;
//     };
//     throw ccArchive::Eof("reading property Width");
//     catch (const ccArchive::Errors& e) { ... }   // any failure of the family
//
// Codes read 0x1FFFnnnn: 1 in the top four bits, the family number FFF in bits 16-27, the
// failure nnnn in bits 0-15 (docs/errors.md lists the families taken). A code is unique
// over the whole library.
//
// Exceptions are persistent core values (ccPersistent): the class name under which an
// error is stored is its message, "ccArchive::Eof".
//
// A throw site that knows better than the table which text describes the failure names a
// message ID and up to three inserts (%1 %2 %3 of that message):
//
//     throw ccStdError::BadArgument("Scaling", ids_LuxTransform_InvalidArgSingular_2, {"Scaling", "0"});
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <utility>
#include <vector>

#include "xnl/std/base/ccPersistent.h"

class ccException : public std::exception, public ccPersistent {
public:
    // The code that keys the guard's table.
    virtual int32_t Code() const noexcept = 0;
    // The class name, "ccArchive::Eof".
    virtual const char* Message() const noexcept = 0;
    const char* what() const noexcept override { return Message(); }

    // What was given where the exception was thrown ("" when nothing).
    const std::string& Details() const noexcept { return details_; }
    // The message followed by the details: "ccArchive::Eof: reading property Width"; the
    // message alone when there are no details.
    virtual std::string DetailedMessage() const;

    // A message ID chosen where the exception was thrown; 0 when the guard's table decides
    // the text.
    int32_t MessageId() const noexcept { return messageId_; }
    // The texts for %1 %2 %3 of the message.
    const std::vector<std::string>& Inserts() const noexcept { return inserts_; }

protected:
    ccException() = default;
    explicit ccException(std::string details, int32_t messageId = 0, std::vector<std::string> inserts = {})
        : details_(std::move(details)), messageId_(messageId), inserts_(std::move(inserts)) {}

private:
    std::string details_;
    int32_t messageId_ = 0;
    std::vector<std::string> inserts_;
};

// A string literal usable as a template argument.
template <size_t N>
struct ccErrorName {
    char text[N];
    constexpr ccErrorName(const char (&literal)[N]) {
        for (size_t i = 0; i < N; ++i) text[i] = literal[i];
    }
};

// The base of one family: a distinct type per family name, so that a handler can catch a
// whole family.
template <ccErrorName Family>
class ccErrorFamily : public ccException {
public:
    static constexpr const char* kFamilyName = Family.text;

protected:
    ccErrorFamily() = default;
    explicit ccErrorFamily(std::string details, int32_t messageId = 0, std::vector<std::string> inserts = {})
        : ccException(std::move(details), messageId, std::move(inserts)) {}
};

// One failure of a family, with its name and code.
template <class FamilyErrors, ccErrorName Name, int32_t CodeValue>
class ccError : public FamilyErrors {
public:
    static constexpr int32_t kCode = CodeValue;

    ccError() = default;
    explicit ccError(std::string details, int32_t messageId = 0, std::vector<std::string> inserts = {})
        : FamilyErrors(std::move(details), messageId, std::move(inserts)) {}

    int32_t Code() const noexcept override { return CodeValue; }
    const char* Message() const noexcept override { return Name.text; }
    const char* PersistentClassName() const noexcept override { return Name.text; }
};
