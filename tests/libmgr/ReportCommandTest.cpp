// libmgr report as tools and library authors use it: the XML report and its selections, and the
// page, opened in a real browser, clicked and searched.
#include "libmgr/ToolRun.hpp"
#include "support/HeadlessBrowser.hpp"
#include "support/ScratchFolder.hpp"

#include <gtest/gtest.h>
#include <pugixml.hpp>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

using testsupport::RunLibmgr;
using testsupport::ScratchFolder;
using testsupport::ToolRun;

// The sample library with one more part that has no ancestry, and markup in its name.
std::string SampleWithLoosePart(const ScratchFolder& scratch) {
    const std::filesystem::path library = scratch.Path() / "library";
    std::filesystem::copy(LM_SAMPLE_LIBRARY_DIR, library, std::filesystem::copy_options::recursive);
    scratch.Write("loose.xml", "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<LibraryPart>\n"
                               "  <DocumentName>Loose &lt;/script&gt;&lt;b&gt;end</DocumentName>\n"
                               "  <Placeable>true</Placeable>\n</LibraryPart>\n");
    const ToolRun built = RunLibmgr(scratch, {"part", "build", (scratch.Path() / "loose.xml").string(), "-o",
                                              (library / "Loose.klm").string()});
    EXPECT_EQ(built.exitCode, 0) << built.err;
    return library.string();
}

// The document names of the parts under `path` of the report, in document order.
std::vector<std::string> NamesAt(const pugi::xml_document& report, const char* path) {
    std::vector<std::string> names;
    for (const pugi::xpath_node& part : report.select_nodes(path))
        names.push_back(part.node().child("Symbol").child_value("DocumentName"));
    return names;
}

pugi::xml_document XmlReport(const ScratchFolder& scratch, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"report", "-q", "--xml"});
    const ToolRun run = RunLibmgr(scratch, arguments);
    EXPECT_EQ(run.exitCode, 0) << run.err;
    pugi::xml_document report;
    EXPECT_TRUE(report.load_string(run.out.c_str())) << run.out;
    return report;
}

TEST(ReportCommand, XmlSelectsByTypePlaceabilityDepthAndFolder) {
    ScratchFolder scratch;
    const std::string library = SampleWithLoosePart(scratch);

    // Every part: the one root of the sample's tree with all below it, then the loose part.
    const pugi::xml_document all = XmlReport(scratch, {library});
    const std::vector<std::string> typed = NamesAt(all, "/LibraryReport/LibParts/LibPart");
    EXPECT_EQ(typed.size(), 32U);
    EXPECT_EQ(typed.front(), "Annotation");
    EXPECT_EQ(NamesAt(all, "/LibraryReport/OutsideTypeTree/LibPart"),
              std::vector<std::string>{"Loose </script><b>end"});
    // Its ancestry, the root first.
    EXPECT_STREQ(all.select_node("//LibPart[Symbol/DocumentName='North Arrow']/Symbol/Ancestry/MainGUID[2]")
                     .node()
                     .child_value(),
                 "0E46C215-B5FA-4B0C-9B18-BD763F20134C");

    // A type by name, by guid, or by file; two types report a part of both twice.
    EXPECT_EQ(NamesAt(XmlReport(scratch, {library, "--type", "Window", "--direct"}), "//LibPart"),
              (std::vector<std::string>{"Casement Window", "Fixed Window"}));
    const std::vector<std::string> twice = NamesAt(
        XmlReport(scratch, {library, "--type", "Table", "--type=0E46C215-B5FA-4B0C-9B18-BD763F20134C"}),
        "//LibPart");
    EXPECT_EQ(twice, (std::vector<std::string>{"Coffee Table", "Desk", "Round Table", "Table", "Annotation",
                                               "North Arrow", "Section Marker"}));
    EXPECT_TRUE(
        XmlReport(scratch, {library, "--type", "Window"}).select_node("//OutsideTypeTree").node().empty());

    // Placeable parts only, and a folder left out.
    const pugi::xml_document placeable = XmlReport(scratch, {library, "--placeable"});
    EXPECT_TRUE(placeable.select_node("//LibPart[Symbol/IsPlaceable='false']").node().empty());
    EXPECT_FALSE(placeable.select_node("//LibPart[Symbol/DocumentName='Desk']").node().empty());
    const pugi::xml_document excluded = XmlReport(scratch, {library, "--exclude", library + "/Objects"});
    EXPECT_TRUE(excluded.select_node("//LibPart[contains(Location, '/Objects/')]").node().empty());
    EXPECT_FALSE(excluded.select_node("//LibPart[Symbol/DocumentName='Door']").node().empty());

    // What cannot be done says so.
    const ToolRun unknown = RunLibmgr(scratch, {"report", "-q", "--xml", library, "--type", "No Such Part"});
    EXPECT_EQ(unknown.exitCode, 1);
    EXPECT_NE(unknown.err.find("'No Such Part'"), std::string::npos) << unknown.err;
    EXPECT_EQ(RunLibmgr(scratch, {"report", "-q", library}).exitCode, 2);
    EXPECT_EQ(RunLibmgr(scratch, {"report", "-q", "--html", library}).exitCode, 2);
    const ToolRun mixed = RunLibmgr(scratch, {"report", "-q", "--html", "-o", "x.html", "--direct", library});
    EXPECT_EQ(mixed.exitCode, 2);
    EXPECT_NE(mixed.err.find("--direct goes with --xml"), std::string::npos) << mixed.err;
}

std::string TextOf(testsupport::HeadlessBrowser& browser, const std::string& selector) {
    return browser.Evaluate("document.querySelector('" + selector + "').textContent").get<std::string>();
}

// The names of the parts the page lists now.
std::vector<std::string> ListedParts(testsupport::HeadlessBrowser& browser) {
    return browser
        .Evaluate("[...document.querySelectorAll('#parts .part > summary > span:first-child')]"
                  ".map((name) => name.textContent)")
        .get<std::vector<std::string>>();
}

TEST(ReportCommand, PageUnfoldsItsTreeAndSearchesInABrowser) {
    ScratchFolder scratch;
    const std::string library = SampleWithLoosePart(scratch);
    const std::filesystem::path page = scratch.Path() / "report.html";
    const ToolRun written = RunLibmgr(scratch, {"report", "-q", library, "--html", "-o", page.string()});
    ASSERT_EQ(written.exitCode, 0) << written.err;
    // Nothing to fetch: no address, no file beside the page.
    const std::string html = scratch.Read("report.html");
    EXPECT_EQ(html.find("http:"), std::string::npos);
    EXPECT_EQ(html.find("https:"), std::string::npos);
    EXPECT_EQ(html.find("</script><b>"), std::string::npos);

    std::filesystem::create_directories(scratch.Path() / "browser");
    testsupport::HeadlessBrowser browser(scratch.Path() / "browser");
    browser.Open("file://" + page.string());
    EXPECT_EQ(browser.Evaluate("document.querySelectorAll('[src], link').length"), 0);
    EXPECT_NE(TextOf(browser, "#figures").find("Parts 38"), std::string::npos) << TextOf(browser, "#figures");
    EXPECT_EQ(browser.Evaluate("document.querySelector('#libraries tbody td.number').textContent"), "38");
    EXPECT_EQ(TextOf(browser, "#status"), "38 parts of 38");

    // The tree opens level by level under the user's clicks, and a type clicked narrows the list.
    const auto label = [&browser](const std::string& type) {
        return "#tree .type[data-guid='" +
               browser
                   .Evaluate("[...document.querySelectorAll('#tree .type')].find((label) =>"
                             " label.firstChild.textContent === '" +
                             type + "').dataset.guid")
                   .get<std::string>() +
               "']";
    };
    const auto visible = [&browser](const std::string& type) {
        return browser
            .Evaluate("[...document.querySelectorAll('#tree .type')].some((label) =>"
                      " label.firstChild.textContent === '" +
                      type + "' && label.checkVisibility())")
            .get<bool>();
    };
    EXPECT_TRUE(visible("General Object"));
    EXPECT_FALSE(visible("Opening"));
    browser.Click(label("General Object"));
    EXPECT_TRUE(visible("Opening"));
    EXPECT_EQ(TextOf(browser, "#status"), "32 parts of 38 of type General Object");
    browser.Click(label("Opening"));
    EXPECT_TRUE(visible("Window"));
    EXPECT_FALSE(visible("Casement Window"));
    EXPECT_EQ(TextOf(browser, "#status"), "7 parts of 38 of type Opening");
    browser.Click("#fold-all");
    EXPECT_FALSE(visible("Opening"));
    browser.Click("#unfold-all");
    EXPECT_TRUE(visible("Casement Window"));
    browser.Click("#all-types");
    EXPECT_EQ(TextOf(browser, "#status"), "38 parts of 38");

    // The search box keeps the parts whose name or file name holds the text typed.
    browser.Type("#search", "casement");
    EXPECT_EQ(ListedParts(browser), std::vector<std::string>{"Casement Window"});
    EXPECT_EQ(TextOf(browser, "#status"), "1 part of 38 matching \u201ccasement\u201d");
    browser.Click("#parts .part > summary");
    const std::string details = TextOf(browser, "#parts .part dl");
    for (const char* shown : {"Opening › Window › Casement Window", "Openings/", "Sections", "ANCS"})
        EXPECT_NE(details.find(shown), std::string::npos) << shown << " in " << details;
    browser.Evaluate("document.querySelector('#search').select()");
    browser.Type("#search", "loose");
    EXPECT_EQ(ListedParts(browser), std::vector<std::string>{"Loose </script><b>end"});

    // The duplicates name the copy the catalogue kept.
    const std::string duplicates = TextOf(browser, "#duplicates");
    EXPECT_NE(duplicates.find("Same id (1)Round Table"), std::string::npos) << duplicates;
    EXPECT_NE(duplicates.find("kept"), std::string::npos);
    EXPECT_TRUE(browser.Evaluate("getComputedStyle(document.querySelector('#failure')).display === 'none'")
                    .get<bool>());
    EXPECT_EQ(browser.Problems(), std::vector<std::string>{});

    // The screenshot in the documentation comes from here: LM_REPORT_SCREENSHOT=docs/report.png.
    if (const char* screenshot = std::getenv("LM_REPORT_SCREENSHOT")) {
        browser.Evaluate("document.querySelector('#search').value = ''");
        browser.Type("#search", "chair");
        browser.Click("#parts .part:nth-child(2) > summary");
        browser.Evaluate("window.scrollTo(0, 0)");
        std::ofstream(screenshot, std::ios::binary) << browser.Screenshot(1280, 860);
    }
}

} // namespace
