#include <LibraryManager.hpp>

#include <cstdio>

int main() {
    KL::MemoryOChannel out(KL::BigEndianSign);
    KL::UniString("Straße").Write(out);
    const auto& bytes = out.GetData();
    KL::MemoryIChannel in(bytes.data(), bytes.size(), KL::BigEndianSign);
    KL::UniString text;
    if (text.Read(in) != KL::NoError || !text.IsEqual("STRASSE", KL::CaseInsensitive))
        return 1;
    std::printf("host linked LibraryManager %s\n", LM::GetLibraryManagerVersion());
    return 0;
}
