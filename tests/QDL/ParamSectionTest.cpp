// The parameter section: encoded and decoded whole, split for the script engine, merged, and
// refused when hostile.
#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

SyParameter Parameter(const char* name, std::uint16_t type, std::vector<double> numbers,
                      std::vector<KL::UniString> texts = {}, std::uint32_t dim1 = 0, std::uint32_t dim2 = 0) {
    return {name, type, 0, {}, dim1, dim2, std::move(numbers), std::move(texts)};
}

SyParSection EveryKind() {
    SyParSection section;
    section.header = {2,     true, STBit_UIDefault | STBit_FixSize | 0x100, 0.1F, 0.2F, -0.3F, 0, 7, 0.25F,
                      0.05F, 3};
    section.parameters = {
        {"A", ParLength, ParFlagFixed | ParFlagBoldName, KL::UniString("Width"), 0, 0, {0.9}, {}},
        Parameter("ang", ParAngle, {1.5}),
        Parameter("r", ParRealNum, {-2.5}),
        Parameter("counts", ParInteger, {1, 2, 3}, {}, 3),
        Parameter("on", ParBoolean, {1}),
        {"label", ParString, ParFlagHidden, KL::UniString("Label €"), 0, 0, {}, {KL::UniString("Oak")}},
        Parameter("grid", ParString, {}, {"a", "bb", "", "dddd"}, 2, 2),
        Parameter("mat", ParMaterial, {3}),
        Parameter("fill", ParFillPattern, {4}),
        Parameter("lt", ParLineType, {5}),
        Parameter("pen", ParPenColor, {6}),
        Parameter("m", ParRealNum, {1, 2, 3, 4, 5, 6}, {}, 2, 3),
        Parameter("sep", ParSeparator, {}),
        {"geometry", ParTitle, 0, KL::UniString("Geometry"), 0, 0, {}, {}},
    };
    section.frameExpressions = {"A/2", "A/2"};
    section.hasOrientation = true;
    section.orientationDef = "x";
    section.orientationMirr = "";
    return section;
}

std::uint32_t At32(const KL::ScopedHandle& handle, std::size_t at) {
    return KL::LoadInOrder<std::uint32_t>(handle.GetData() + at, KL::HostPlatformSign);
}

std::string Bytes(GSHandle handle) {
    return std::string(*handle, BMGetHandleSize(handle));
}

TEST(ParamSection, EveryKindOfParameterComesBack) {
    const SyParSection section = EveryKind();
    const KL::ScopedHandle handle(BuildSyParHandle(section));
    ASSERT_NE(handle.Get(), nullptr);
    EXPECT_EQ(QDLDecode_ParHdl(handle.Get()), KL::NoError);
    SyParSection parsed;
    ASSERT_EQ(ParseSyParSection(handle.GetData(), handle.GetSize(), &parsed), KL::NoError);
    EXPECT_EQ(parsed, section);
    // The engine finds the parameter records by the name block's length and offset.
    EXPECT_EQ(At32(handle, 40), 48 * section.parameters.size());
    EXPECT_EQ(At32(handle, 44), 72u);

    const auto refused = [](void (*change)(SyParSection&)) {
        SyParSection bad = EveryKind();
        change(bad);
        GSHandle built = BuildSyParHandle(bad);
        const bool wasRefused = built == nullptr;
        BMKillHandle(&built);
        return wasRefused;
    };
    EXPECT_TRUE(refused([](SyParSection& s) { s.parameters[0].name = std::string(32, 'n'); }));
    EXPECT_FALSE(refused([](SyParSection& s) { s.parameters[0].name = std::string(31, 'n'); }));
    EXPECT_TRUE(refused([](SyParSection& s) { s.parameters[0].name = "a-b"; }));
    EXPECT_TRUE(refused([](SyParSection& s) { s.parameters[0].numbers = {1, 2}; }));
    EXPECT_TRUE(refused([](SyParSection& s) { s.parameters[5].numbers = {1}; }));
    EXPECT_TRUE(refused([](SyParSection& s) { s.parameters[1].dim2 = 1; }));
    EXPECT_TRUE(refused([](SyParSection& s) { s.parameters[1].type = 13; }));
    EXPECT_TRUE(refused([](SyParSection& s) { s.frameExpressions.resize(7); }));
    EXPECT_TRUE(refused([](SyParSection& s) { s.orientationDef = std::string(32, 'o'); }));
    EXPECT_EQ(QDLDecode_ParHdl(nullptr), KL::ErrNilHandle);
}

TEST(ParamSection, SplitsIntoTheBlocksTheEngineReads) {
    const SyParSection section = EveryKind();
    const KL::ScopedHandle handle(BuildSyParHandle(section));
    SyParHeader header;
    KL::ScopedHandle names, values, expressions, orientation;
    ASSERT_EQ(SplitSyParHandle(handle.Get(), &header, names.GetAddress(), values.GetAddress(),
                               expressions.GetAddress(), orientation.GetAddress()),
              KL::NoError);
    EXPECT_EQ(header, section.header);
    EXPECT_EQ(names.GetSize(), static_cast<std::int64_t>(48 * section.parameters.size()));
    std::vector<SyParameter> parameters;
    ASSERT_EQ(ParseSyParameters(names.Get(), values.Get(), &parameters), KL::NoError);
    EXPECT_EQ(parameters, section.parameters);
    EXPECT_EQ(Bytes(expressions.Get()), std::string("A/2\0A/2\0", 8));
    EXPECT_EQ(orientation.GetSize(), 64);
    EXPECT_EQ(std::string(orientation.GetData()), "x");

    KL::ScopedHandle addPar;
    ASSERT_EQ(SplitSyParHandle(handle.Get(), addPar.GetAddress()), KL::NoError);
    const QDLAddParData defaults(addPar.Get());
    EXPECT_EQ(defaults.GetStatus(), KL::NoError);
    EXPECT_EQ(defaults.GetParameters(), section.parameters);
    ASSERT_NE(defaults.Find("label"), nullptr);
    EXPECT_EQ(defaults.Find("label")->texts, std::vector<KL::UniString>{KL::UniString("Oak")});
    EXPECT_EQ(defaults.Find("m")->numbers.size(), 6u);
    EXPECT_EQ(defaults.Find("LABEL"), nullptr);

    const KL::ScopedHandle garbage(KL::BMNewHandleFrom("not a section", 13));
    GSHandle cleared = garbage.Get(); // not owned: a failed split must only overwrite it
    EXPECT_EQ(SplitSyParHandle(garbage.Get(), &cleared), KL::ErrStreamFormat);
    EXPECT_EQ(cleared, nullptr);
    EXPECT_EQ(SplitSyParHandle(nullptr, &cleared), KL::ErrNilHandle);
    const QDLAddParData none(garbage.Get());
    EXPECT_EQ(none.GetStatus(), KL::ErrStreamFormat);
    EXPECT_TRUE(none.GetParameters().empty());
}

TEST(ParamSection, MergeTakesOnlyValuesOfTheSameNameTypeAndShape) {
    SyParSection reference;
    reference.header.symbolColor = 9;
    reference.parameters = {Parameter("A", ParLength, {1}), Parameter("B", ParLength, {2}),
                            Parameter("label", ParString, {}, {"x"}),
                            Parameter("arr", ParInteger, {1, 2}, {}, 2), Parameter("kept", ParAngle, {0.5})};
    SyParSection actual;
    actual.parameters = {Parameter("B", ParAngle, {9}), Parameter("arr", ParInteger, {7, 8, 9}, {}, 3),
                         Parameter("label", ParString, {}, {"Oak"}), Parameter("Z", ParLength, {4}),
                         Parameter("A", ParLength, {5})};
    const KL::ScopedHandle referenceHandle(BuildSyParHandle(reference));
    const KL::ScopedHandle actualHandle(BuildSyParHandle(actual));
    const KL::ScopedHandle merged(NewSyParHdlFromRef(referenceHandle.Get(), actualHandle.Get(), nullptr, 0));
    ASSERT_NE(merged.Get(), nullptr);
    SyParSection result;
    ASSERT_EQ(ParseSyParSection(merged.GetData(), merged.GetSize(), &result), KL::NoError);
    SyParSection expected = reference;
    expected.parameters[0].numbers = {5};
    expected.parameters[2].texts = {KL::UniString("Oak")};
    EXPECT_EQ(result, expected);
    EXPECT_EQ(NewSyParHdlFromRef(referenceHandle.Get(), actualHandle.Get(), nullptr, 1), nullptr);
    const KL::ScopedHandle garbage(KL::BMNewHandleFrom("garbage", 7));
    EXPECT_EQ(NewSyParHdlFromRef(referenceHandle.Get(), garbage.Get(), nullptr, 0), nullptr);

    double values[27];
    for (int i = 0; i < 27; ++i)
        values[i] = i * 0.5;
    const KL::ScopedHandle letters(QDLParamsToVarHdl(values, 26));
    ASSERT_NE(letters.Get(), nullptr);
    ASSERT_EQ(ParseSyParSection(letters.GetData(), letters.GetSize(), &result), KL::NoError);
    ASSERT_EQ(result.parameters.size(), 26u);
    for (int i = 0; i < 26; ++i)
        EXPECT_EQ(result.parameters[i],
                  Parameter(std::string(1, char('A' + i)).c_str(), ParLength, {i * 0.5}));
    EXPECT_EQ(QDLParamsToVarHdl(values, 27), nullptr);
    EXPECT_EQ(QDLParamsToVarHdl(values, -1), nullptr);
    EXPECT_EQ(QDLParamsToVarHdl(nullptr, 1), nullptr);
}

TEST(ParamSection, HostileBytesAreRefused) {
    SyParSection section;
    section.parameters = {{"A", ParLength, 0, KL::UniString("Width"), 0, 0, {0.9}, {}},
                          Parameter("label", ParString, {}, {"Oak"})};
    section.frameExpressions = {"A"};
    const KL::ScopedHandle valid(BuildSyParHandle(section));
    const std::string bytes(valid.GetData(), valid.GetSize());
    const std::uint32_t namesAt = At32(valid, 44);
    const std::uint32_t valuesAt = At32(valid, 52);
    const auto decode = [](const std::string& damaged) {
        KL::ScopedHandle handle(KL::BMNewHandleFrom(damaged.data(), damaged.size()));
        return QDLDecode_ParHdl(handle.Get());
    };
    const auto with32 = [&bytes](std::size_t at, std::uint32_t value) {
        std::string damaged = bytes;
        KL::StoreInOrder(damaged.data() + at, value, KL::HostPlatformSign);
        return damaged;
    };
    EXPECT_EQ(decode(with32(36, 0xFFFFFFFF)), KL::ErrStreamFormat) << "parameter count";
    EXPECT_EQ(decode(with32(52, static_cast<std::uint32_t>(bytes.size()))), KL::ErrStreamFormat)
        << "value block past the end";
    EXPECT_EQ(decode(with32(60, 0xFFFFFFFF)), KL::ErrStreamFormat) << "expression block offset";
    EXPECT_EQ(decode(with32(namesAt + 44, 0x7FFFFFFF)), KL::ErrStreamFormat) << "value offset";
    EXPECT_EQ(decode(with32(namesAt + 36, 0x7FFFFFFF)), KL::ErrStreamFormat) << "array of absurd size";
    EXPECT_EQ(decode(with32(valuesAt, 0xFFFFFFF0)), KL::ErrStreamFormat) << "description length";
    EXPECT_EQ(decode(with32(namesAt + 32, 99)), KL::ErrStreamFormat) << "unknown type";
    std::string longName = bytes;
    longName.replace(namesAt, 32, 32, 'N');
    EXPECT_EQ(decode(longName), KL::ErrStreamFormat) << "name without NUL";
    std::string expression = bytes;
    expression.back() = 'B';
    EXPECT_EQ(decode(expression), KL::ErrStreamFormat) << "frame expression without NUL";

    KL::ScopedHandle addPar;
    ASSERT_EQ(SplitSyParHandle(valid.Get(), addPar.GetAddress()), KL::NoError);
    const std::string addParBytes(addPar.GetData(), addPar.GetSize());
    std::vector<SyParameter> parameters;
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        EXPECT_EQ(decode(bytes.substr(0, length)), KL::ErrStreamFormat) << length;
        if (length < addParBytes.size()) {
            const KL::ScopedHandle cut(KL::BMNewHandleFrom(addParBytes.data(), length));
            EXPECT_EQ(ParseAddParHandle(cut.Get(), &parameters), KL::ErrStreamFormat) << length;
        }
    }
}

} // namespace
