// Feeds arbitrary text to the XML reader and walks what it parsed.
#include <LibraryManager.hpp>

#include <cstddef>
#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    KL::XMLIChannel in;
    if (in.Parse(std::string_view(reinterpret_cast<const char*>(data), size)) != KL::NoError)
        return 0;
    // Descend along first children, reading each as every type.
    for (int depth = 0; depth < 16; ++depth) {
        const std::string name = in.PeekNextName();
        if (name.empty())
            break;
        KL::UniString text;
        KL::Guid guid;
        double number = 0;
        std::int64_t integer = 0;
        bool flag = false;
        in.HasNext(name);
        in.ReadElement(name, guid);
        in.ReadElement(name, number);
        in.ReadElement(name, integer);
        in.ReadElement(name, flag);
        in.ReadElement(name, text);
        KL::ClassVersion version;
        if (in.StartTag(name, &version) != KL::NoError && in.StartTag(name) != KL::NoError)
            break;
        in.ReadText(text);
        in.ReadAttribute("version", text);
    }
    return 0;
}
