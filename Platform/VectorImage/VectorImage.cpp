#include "VectorImage/VectorImage.hpp"

#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/Frame.hpp"
#include "KLRoot/IChannel.hpp"
#include "KLRoot/NumberText.hpp"
#include "KLRoot/OChannel.hpp"
#include "KLRoot/XMLIChannel.hpp"
#include "KLRoot/XMLOChannel.hpp"

#include <algorithm>
#include <bit>
#include <cmath>

const KL::ClassInfo VectorImage::classInfo("VectorImage", KL::Guid("C4D1E8A2-5B3F-4E70-9A1C-2F6B8D0E4A93"), 1,
                                           0);

namespace {

constexpr double DefaultTextSize = 2.5;
// Kind, pen, fill, number count and an empty text: the least a primitive takes in a stream.
constexpr std::uint64_t MinPrimitiveSize = 1 + 2 + 2 + 4 + 4;

struct KindForm {
    const char* element;
    std::vector<const char*> attributes; // empty for polygons, whose points are children
};

const KindForm& FormOf(VectorImage::Kind kind) {
    static const KindForm forms[] = {
        {"Hotspot", {"x", "y"}}, {"Line", {"x1", "y1", "x2", "y2"}}, {"Arc", {"x", "y", "r", "begin", "end"}},
        {"Polygon", {}},         {"Text", {"x", "y", "size"}},
    };
    return forms[kind - 1];
}

bool IsKnownKind(std::uint8_t kind) {
    return kind >= VectorImage::Hotspot && kind <= VectorImage::Text;
}

bool FitsKind(const VectorImage::Primitive& primitive) {
    if (!IsKnownKind(primitive.kind))
        return false;
    const std::size_t count = primitive.numbers.size();
    if (primitive.kind == VectorImage::Polygon)
        return count >= 4 && count % 2 == 0 && primitive.text.IsEmpty();
    return count == FormOf(primitive.kind).attributes.size() &&
           (primitive.kind == VectorImage::Text || primitive.text.IsEmpty());
}

void SetNumber(KL::XMLOChannel& channel, const char* name, double value) {
    channel.SetAttribute(name, KL::UniString(KL::FormatDouble(value)));
}

bool ReadNumber(const KL::XMLIChannel& channel, const char* name, double* value) {
    KL::UniString text;
    return channel.ReadAttribute(name, text) == KL::NoError && KL::ParseDouble(text.ToUTF8(), value);
}

// An attribute that may be left out; false only when it is there and does not read.
bool ReadOptional(const KL::XMLIChannel& channel, const char* name, double* value) {
    KL::UniString text;
    return channel.ReadAttribute(name, text) != KL::NoError || KL::ParseDouble(text.ToUTF8(), value);
}

} // namespace

bool VectorImage::Add(const Primitive& primitive) {
    if (!FitsKind(primitive))
        return false;
    primitives.push_back(primitive);
    return true;
}

VectorImage::Box VectorImage::GetBounds() const {
    Box box;
    const auto include = [&box](double x, double y) {
        box.minX = box.empty ? x : std::min(box.minX, x);
        box.minY = box.empty ? y : std::min(box.minY, y);
        box.maxX = box.empty ? x : std::max(box.maxX, x);
        box.maxY = box.empty ? y : std::max(box.maxY, y);
        box.empty = false;
    };
    for (const Primitive& primitive : primitives) {
        const std::vector<double>& n = primitive.numbers;
        if (primitive.kind == Arc) {
            include(n[0] - std::abs(n[2]), n[1] - std::abs(n[2]));
            include(n[0] + std::abs(n[2]), n[1] + std::abs(n[2]));
        } else if (primitive.kind == Text) {
            include(n[0], n[1]);
        } else {
            for (std::size_t i = 0; i + 1 < n.size(); i += 2)
                include(n[i], n[i + 1]);
        }
    }
    return box;
}

int VectorImage::Write(KL::OChannel& channel) const {
    KL::OutputFrame frame(channel, classInfo);
    channel.Write(static_cast<std::uint32_t>(primitives.size()));
    for (const Primitive& primitive : primitives) {
        channel.Write(static_cast<std::uint8_t>(primitive.kind));
        channel.Write(primitive.pen);
        channel.Write(primitive.fill);
        channel.Write(static_cast<std::uint32_t>(primitive.numbers.size()));
        for (const double number : primitive.numbers)
            channel.Write(number);
        primitive.text.Write(channel);
    }
    return frame.Close();
}

int VectorImage::Read(KL::IChannel& channel) {
    KL::InputFrame frame(channel, classInfo);
    if (const int err = frame.GetStatus(); err != KL::NoError)
        return err;
    std::uint32_t count = 0;
    channel.Read(count);
    if (count > frame.GetRemaining() / MinPrimitiveSize)
        return KL::ErrStreamFormat;
    std::vector<Primitive> read(count);
    for (Primitive& primitive : read) {
        std::uint8_t kind = 0;
        std::uint32_t numbers = 0;
        channel.Read(kind);
        channel.Read(primitive.pen);
        channel.Read(primitive.fill);
        channel.Read(numbers);
        if (channel.GetStatus() != KL::NoError || numbers > frame.GetRemaining() / sizeof(double))
            return KL::ErrStreamFormat;
        primitive.kind = static_cast<Kind>(kind);
        primitive.numbers.resize(numbers);
        for (double& number : primitive.numbers)
            channel.Read(number);
        if (primitive.text.Read(channel) != KL::NoError || !FitsKind(primitive))
            return KL::ErrStreamFormat;
    }
    if (const int err = frame.Close(); err != KL::NoError)
        return err;
    primitives = std::move(read);
    return KL::NoError;
}

int VectorImage::WriteXML(KL::XMLOChannel& channel) const {
    channel.StartTag("Drawing2D");
    for (const Primitive& primitive : primitives) {
        const KindForm& form = FormOf(primitive.kind);
        channel.StartTag(form.element);
        for (std::size_t i = 0; i < form.attributes.size(); ++i) {
            if (primitive.kind != Text || i != 2 || primitive.numbers[i] != DefaultTextSize)
                SetNumber(channel, form.attributes[i], primitive.numbers[i]);
        }
        if (primitive.pen != 1)
            channel.SetAttribute("pen", KL::UniString(std::to_string(primitive.pen)));
        if (primitive.fill != 0)
            channel.SetAttribute("fill", KL::UniString(std::to_string(primitive.fill)));
        if (primitive.kind == Polygon) {
            for (std::size_t i = 0; i + 1 < primitive.numbers.size(); i += 2) {
                channel.StartTag("Point");
                SetNumber(channel, "x", primitive.numbers[i]);
                SetNumber(channel, "y", primitive.numbers[i + 1]);
                channel.EndTag("Point");
            }
        }
        if (!primitive.text.IsEmpty())
            channel.WriteText(primitive.text);
        channel.EndTag(form.element);
    }
    channel.EndTag("Drawing2D");
    return channel.GetStatus();
}

int VectorImage::ReadXML(KL::XMLIChannel& channel) {
    const auto fail = [this](const std::string& message) {
        xmlMessage = "Drawing2D: " + message;
        return KL::ErrXMLFormat;
    };
    if (channel.StartTag("Drawing2D") != KL::NoError)
        return fail("no Drawing2D element");
    std::vector<Primitive> read;
    for (std::string element = channel.PeekNextName(); !element.empty(); element = channel.PeekNextName()) {
        Primitive primitive;
        for (std::uint8_t kind = Hotspot; kind <= Text; ++kind) {
            if (element == FormOf(static_cast<Kind>(kind)).element)
                primitive.kind = static_cast<Kind>(kind);
        }
        if (element != FormOf(primitive.kind).element)
            return fail("unknown element '" + element + "'");
        channel.StartTag(element);
        for (const char* attribute : FormOf(primitive.kind).attributes) {
            double value = DefaultTextSize;
            const bool isSize = primitive.kind == Text && std::string_view(attribute) == "size";
            if (!(isSize ? ReadOptional(channel, attribute, &value) : ReadNumber(channel, attribute, &value)))
                return fail(element + " needs a number in '" + attribute + "'");
            primitive.numbers.push_back(value);
        }
        double pen = 1;
        double fill = 0;
        if (!ReadOptional(channel, "pen", &pen) || !ReadOptional(channel, "fill", &fill))
            return fail(element + ": pen and fill are numbers");
        primitive.pen = static_cast<std::int16_t>(pen);
        primitive.fill = static_cast<std::int16_t>(fill);
        while (primitive.kind == Polygon && channel.PeekNextName() == "Point") {
            channel.StartTag("Point");
            double x = 0;
            double y = 0;
            if (!ReadNumber(channel, "x", &x) || !ReadNumber(channel, "y", &y))
                return fail("a Point needs the numbers x and y");
            primitive.numbers.insert(primitive.numbers.end(), {x, y});
            channel.EndTag("Point");
        }
        if (primitive.kind == Text)
            channel.ReadText(primitive.text);
        if (!FitsKind(primitive))
            return fail(element + " does not have the points its kind needs");
        read.push_back(std::move(primitive));
        channel.EndTag(element);
    }
    channel.EndTag("Drawing2D");
    primitives = std::move(read);
    return KL::NoError;
}
