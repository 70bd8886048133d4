#include "orb/CPropertyTable.h"

#include <gtest/gtest.h>
#include <string>

#include "orb/CodeBookProperty.h"
#include "orb/ContainerProperty.h"
#include "orb/testSupport.h"

namespace Quillon::Orb {
namespace {

namespace Names = CodeBookProperty::H264Compressor;
constexpr const PropertyName& kHardware = CodeBookProperty::MediaFilter::UsingHardwareAcceleration;
constexpr const PropertyName& kFormat = CodeBookProperty::MediaFilter::OutputFormat;
constexpr const PropertyName& kFastStart = ContainerProperty::Mpeg4ContainerWriter::FastStart;

class Component : public CPropertyTable {
public:
    Component() {
        DeclareInt(Names::Threads, 4, 0, 64);
        DeclareString(Names::Profile, "high");
        DeclareFour(kFormat, 0);
        DeclareBool(kFastStart, true);
        DeclareReadOnlyFlag(kHardware, false);
    }
    using CPropertyTable::GetFlag;
    using CPropertyTable::GetFour;
    using CPropertyTable::GetInt;
    using CPropertyTable::GetText;
    using CPropertyTable::UpdateFlag;
    using CPropertyTable::WasSet;

protected:
    std::string GetOwnerName() const override { return "'h264'"; }
    Result AcceptProperty(const PropertyName& name, const PropertyValue& value) override {
        if (name == Names::Profile && std::string(value.text->GetText()) == "extended") {
            return ResultInvalidArgument("this encoder has no such profile");
        }
        return 0;
    }
};

TEST(CPropertyTable, KeepsWhatItDeclared) {
    TraceCatcher trace;
    Component component;
    EXPECT_EQ(4, component.GetInt(Names::Threads));
    EXPECT_STREQ("high", component.GetText(Names::Profile));
    EXPECT_FALSE(component.WasSet(Names::Threads));
    RObject<CString> text(new CString("main"));
    EXPECT_EQ(0, component.SetProperty(Names::Threads, 2));
    EXPECT_EQ(0, component.SetProperty(Names::Profile, text.Get()));
    EXPECT_EQ(0, component.SetFourProperty(kFormat, 'avc1'));
    EXPECT_EQ(0, component.SetProperty(kFastStart, false));
    EXPECT_EQ(2, component.GetInt(Names::Threads));
    EXPECT_STREQ("main", component.GetText(Names::Profile));
    EXPECT_EQ(static_cast<unsigned>('avc1'), component.GetFour(kFormat));
    EXPECT_FALSE(component.GetFlag(kFastStart));
    EXPECT_TRUE(component.WasSet(Names::Threads));
    EXPECT_EQ(0, trace.Count());
}

TEST(CPropertyTable, GettersFillOnlyWhatIsThere) {
    Component component;
    int number = -1;
    bool flag = true;
    unsigned int four = 1;
    RObject<CString> text;
    EXPECT_EQ(0, component.GetProperty(Names::Threads, number));
    EXPECT_EQ(4, number);
    EXPECT_EQ(0, component.GetProperty(kHardware, flag));
    EXPECT_FALSE(flag);
    EXPECT_EQ(0, component.GetFourProperty(kFormat, four));
    EXPECT_EQ(0u, four);
    EXPECT_EQ(0, component.GetProperty(Names::Profile, text));
    EXPECT_STREQ("high", text->GetText());
    flag = true;
    EXPECT_EQ(ResultNotSupported::kCode, component.GetProperty(Names::Threads, flag));
    EXPECT_EQ(ResultNotSupported::kCode, component.GetProperty(Names::BitRate, number));
    EXPECT_TRUE(flag);
    EXPECT_EQ(4, number);
}

TEST(CPropertyTable, ReadOnlyFlagIsTheComponentsOwn) {
    TraceCatcher trace;
    Component component;
    EXPECT_EQ(ResultNotSupported::kCode, component.SetProperty(kHardware, true));
    bool flag = true;
    component.GetProperty(kHardware, flag);
    EXPECT_FALSE(flag);
    component.UpdateFlag(kHardware, true);
    component.GetProperty(kHardware, flag);
    EXPECT_TRUE(flag);
    EXPECT_TRUE(trace.HasLineWith({"'h264'", "UsingHardwareAcceleration", "true"}));
}

TEST(CPropertyTable, RefusalIsOneLineThatNamesComponentPropertyAndValue) {
    struct Case {
        const char* what;
        int code;
        Result (*set)(Component&);
        const char* property;
        const char* value;
    };
    const Case cases[] = {
        {"unknown", ResultNotSupported::kCode,
         [](Component& c) { return c.SetProperty(Names::NumBFrames, 3); },
         "H264Compressor::NumBFrames", "3"},
        {"kind", ResultNotSupported::kCode,
         [](Component& c) { return c.SetProperty(Names::Threads, true); },
         "H264Compressor::Threads", "true"},
        {"kind of code", ResultNotSupported::kCode,
         [](Component& c) { return c.SetFourProperty(Names::Threads, 'UYVY'); },
         "H264Compressor::Threads", "'UYVY'"},
        {"low", ResultInvalidArgument::kCode,
         [](Component& c) { return c.SetProperty(Names::Threads, -1); }, "H264Compressor::Threads",
         "-1"},
        {"high", ResultInvalidArgument::kCode,
         [](Component& c) { return c.SetProperty(Names::Threads, 65); }, "H264Compressor::Threads",
         "65"},
        {"null", ResultNullPointer::kCode,
         [](Component& c) { return c.SetProperty(Names::Profile, static_cast<CString*>(nullptr)); },
         "H264Compressor::Profile", "null"},
        {"component", ResultInvalidArgument::kCode,
         [](Component& c) {
             RObject<CString> text(new CString("extended"));
             return c.SetProperty(Names::Profile, text.Get());
         },
         "H264Compressor::Profile", "\"extended\""},
    };
    for (const Case& c : cases) {
        TraceCatcher trace;
        Component component;
        EXPECT_EQ(c.code, c.set(component)) << c.what;
        EXPECT_EQ(4, component.GetInt(Names::Threads)) << c.what;
        EXPECT_STREQ("high", component.GetText(Names::Profile)) << c.what;
        EXPECT_EQ(1, trace.Count()) << c.what;
        EXPECT_TRUE(trace.HasLineWith({"'h264'", c.property, c.value, "\n"})) << c.what;
    }
}

TEST(CPropertyTable, CopiesWhatWasSetAndIsKnown) {
    TraceCatcher trace;
    Component source;
    Component target;
    source.SetProperty(Names::Threads, 7);
    source.UpdateFlag(kHardware, true);
    target.SetFourProperty(kFormat, 'avc1');
    EXPECT_EQ(0, target.SetProperties(&source));
    EXPECT_EQ(7, target.GetInt(Names::Threads));
    EXPECT_EQ(static_cast<unsigned>('avc1'), target.GetFour(kFormat));
    EXPECT_FALSE(target.GetFlag(kHardware));
    EXPECT_EQ(0, target.SetProperties(nullptr));
    EXPECT_EQ(0, target.SetProperties(&target));
    EXPECT_EQ(0, trace.Count());
}

TEST(CPropertyTable, MediaPropertiesAreAnOpenTable) {
    TraceCatcher trace;
    RObject<CVideoProperties> open(new CVideoProperties(nullptr));
    Component component;
    EXPECT_EQ(0, component.SetProperties(open.Get()));
    EXPECT_EQ(0, open->SetProperty(Names::Threads, 9));
    EXPECT_EQ(0, open->SetProperty(Names::BitRate, 1000));
    EXPECT_EQ(0, open->SetProperty(Names::Threads, 12));
    RObject<CVideoProperties> copy(new CVideoProperties(open.Get()));
    // The component takes what it has and passes over the rest.
    EXPECT_EQ(0, component.SetProperties(copy.Get()));
    EXPECT_EQ(12, component.GetInt(Names::Threads));
    EXPECT_EQ(0, trace.Count());
    open->SetProperty(Names::Threads, 99);
    EXPECT_EQ(ResultInvalidArgument::kCode, component.SetProperties(open.Get()));
    EXPECT_EQ(12, component.GetInt(Names::Threads));
}

TEST(PropertyName, IsItsText) {
    const char other[] = "H264Compressor::Threads";
    EXPECT_TRUE(Names::Threads == PropertyName(other));
    EXPECT_FALSE(Names::Threads == Names::Preset);
    EXPECT_FALSE(Names::BitRate == CodeBookProperty::VideoCompressor::BitRate);
}

}  // namespace
}  // namespace Quillon::Orb
