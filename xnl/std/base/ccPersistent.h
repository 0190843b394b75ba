// The base of core values that persist through the core archive (ccArchive): shapes,
// transforms, and the exceptions (an error can be stored and raised again elsewhere).
//
// What every such value shares is the name under which the archive stores its class and
// by which a loader recreates it; the name is unique over the library and never changes
// once archives hold it. Writing and reading a value's state belongs to the value's own
// class, beside its archive code: this base stays free of the archive.
#pragma once

class ccPersistent {
public:
    // The class's stored name: "ccShapesError::BadRadius", "ccCircle".
    virtual const char* PersistentClassName() const noexcept = 0;

protected:
    ccPersistent() = default;
    ccPersistent(const ccPersistent&) = default;
    ccPersistent& operator=(const ccPersistent&) = default;
    // Values are destroyed through their own class (or their counted base), never as a
    // ccPersistent.
    ~ccPersistent() = default;
};
