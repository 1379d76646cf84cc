#pragma once

// A host's data on a record that tells when its last reference went.
#include <LibraryManager.hpp>

namespace testsupport {

class ReleaseNote : public LM::SymbolUserData {
public:
    explicit ReleaseNote(bool* released) : released(released) {}
    ~ReleaseNote() override { *released = true; }

private:
    bool* released;
};

inline KL::ConstSharedPtr<LM::SymbolUserData> NewReleaseNote(bool* released) {
    return KL::ConstSharedPtr<LM::SymbolUserData>(new ReleaseNote(released));
}

} // namespace testsupport
