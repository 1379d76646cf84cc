#pragma once

#include "KLRoot/Channel.hpp"
#include "KLRoot/ClassInfo.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/Object.hpp"
#include "KLRoot/UniString.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace KL {
class XMLIChannel;
class XMLOChannel;
} // namespace KL

// A part's 2D drawing, the content of its "2DDR" section: hotspots, lines, arcs, polygons and
// texts, in metres and radians.
class LM_EXPORT VectorImage : public KL::Object {
public:
    static const KL::ClassInfo classInfo;

    enum Kind : std::uint8_t { Hotspot = 1, Line = 2, Arc = 3, Polygon = 4, Text = 5 };

    // Coordinates by kind: hotspot x y; line x1 y1 x2 y2; arc x y r begin end; polygon x y per
    // point (two points at least); text x y size.
    struct Primitive {
        Kind kind = Hotspot;
        std::int16_t pen = 1;
        std::int16_t fill = 0;
        std::vector<double> numbers;
        KL::UniString text;

        bool operator==(const Primitive&) const = default;
    };

    struct Box {
        double minX = 0, minY = 0, maxX = 0, maxY = 0;
        bool empty = true;
    };

    VectorImage() = default;

    VectorImage* Clone() const override { return new VectorImage(*this); }
    const KL::ClassInfo* GetClassInfo() const override { return &classInfo; }
    int Read(KL::IChannel& channel) override;
    int Write(KL::OChannel& channel) const override;
    int WriteXML(KL::XMLOChannel& channel) const override;
    int ReadXML(KL::XMLIChannel& channel) override;
    // Why ReadXML failed, in words.
    const std::string& GetXMLMessage() const { return xmlMessage; }

    // False, and nothing added, when the numbers do not fit the kind.
    bool Add(const Primitive& primitive);
    const std::vector<Primitive>& GetPrimitives() const { return primitives; }
    bool IsEmpty() const { return primitives.empty(); }
    // The box around every point, arcs taken as their full circles.
    Box GetBounds() const;

    bool operator==(const VectorImage& other) const { return primitives == other.primitives; }

private:
    std::vector<Primitive> primitives;
    std::string xmlMessage;
};
