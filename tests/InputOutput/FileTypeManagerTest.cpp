// The file type table: registration, groups, lookups and identification of files.
#include "support/ScratchFolder.hpp"

#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <cstring>

namespace {

bool LooksLikePng(const char* head, std::size_t size) {
    return size >= 4 && std::memcmp(head, "\x89PNG", 4) == 0;
}

TEST(FileTypeManager, GroupsNestAndTypesBelongWhereTheyWereAdded) {
    FTM::FileTypeManager manager("MAKE");
    EXPECT_EQ(&FTM::FileTypeManager::GetCurrent(), &manager);
    EXPECT_EQ(manager.GetApplicationCreator(), FTM::MakeCode("MAKE"));

    const FTM::TypeID script =
        manager.AddType({"QDL Script", "qdl", FTM::MakeCode("KLTX"), FTM::MakeCode("TEXT")});
    const FTM::GroupID symbols = manager.AddGroup("Symbol Files");
    const FTM::GroupID inner = manager.AddGroup("Inner", symbols);
    const FTM::TypeID part =
        manager.AddType({"Object File", "klm;dor", FTM::MakeCode("KLTX"), FTM::MakeCode("KSYM")});
    const FTM::TypeID door = manager.AddType({"Door File", "door", 0, FTM::MakeCode("KDOR")}, inner);
    EXPECT_TRUE(script.IsType());
    EXPECT_TRUE(symbols.IsGroup());
    EXPECT_NE(script, FTM::UnknownType);
    EXPECT_EQ(manager.AddTypeToGroup(part, symbols), KL::NoError);

    EXPECT_TRUE(manager.IsTypeOrGroupInTypeOrGroup(part, symbols));
    EXPECT_TRUE(manager.IsTypeOrGroupInTypeOrGroup(door, symbols)) << "through the subgroup";
    EXPECT_TRUE(manager.IsTypeOrGroupInTypeOrGroup(inner, symbols));
    EXPECT_TRUE(manager.IsTypeOrGroupInTypeOrGroup(script, FTM::RootGroup));
    EXPECT_TRUE(manager.IsTypeOrGroupInTypeOrGroup(part, part));
    EXPECT_FALSE(manager.IsTypeOrGroupInTypeOrGroup(script, symbols));
    EXPECT_FALSE(manager.IsTypeOrGroupInTypeOrGroup(symbols, inner));
    EXPECT_FALSE(manager.IsTypeOrGroupInTypeOrGroup(part, script));
    EXPECT_EQ(manager.GetFirstTypeChild(symbols), part);
    EXPECT_EQ(manager.GetFirstTypeChild(inner), door);

    EXPECT_EQ(manager.GetMacType(part), FTM::MakeCode("KSYM"));
    EXPECT_EQ(manager.GetMacCreator(part), FTM::MakeCode("KLTX"));
    ASSERT_NE(manager.GetType(part), nullptr);
    EXPECT_TRUE(manager.GetType(part)->IsExtensionIncluded("DOR"));
    EXPECT_FALSE(manager.GetType(part)->IsExtensionIncluded("klmx"));
    EXPECT_EQ(manager.SearchForType({"", "dor", 0, 0}, symbols), part);
    EXPECT_EQ(manager.SearchForType({"", "qdl", 0, 0}, symbols), FTM::UnknownType);
    EXPECT_EQ(manager.SearchForType({"", "", 0, FTM::MakeCode("KDOR")}), door);

    // A default group is the unknown one, and nothing can be added to it.
    const FTM::GroupID unset;
    EXPECT_EQ(unset, FTM::UnknownGroup);
    EXPECT_NE(manager.AddTypeToGroup(script, unset), KL::NoError);
    EXPECT_EQ(manager.AddType({"Lost", "lost", 0, 0}, unset), FTM::UnknownType);

    EXPECT_EQ(manager.RemoveGroup(symbols), KL::NoError);
    EXPECT_FALSE(manager.IsTypeOrGroupInTypeOrGroup(door, inner)) << "subgroups go with their group";
    EXPECT_NE(manager.GetType(door), nullptr) << "types stay registered";
    EXPECT_EQ(manager.RemoveType(door), KL::NoError);
    EXPECT_EQ(manager.GetType(door), nullptr);
    EXPECT_EQ(manager.RemoveType(door), KL::ErrParam);
    EXPECT_EQ(manager.RemoveGroup(FTM::RootGroup), KL::ErrParam);

    {
        FTM::FileTypeManager nested;
        EXPECT_EQ(&FTM::FileTypeManager::GetCurrent(), &nested);
    }
    EXPECT_EQ(&FTM::FileTypeManager::GetCurrent(), &manager);
}

TEST(FileTypeManager, IdentifiesFilesByExtensionThenContentThenCode) {
    testsupport::ScratchFolder scratch;
    FTM::FileTypeManager manager;
    const FTM::GroupID images = manager.AddGroup("All Images");
    const FTM::TypeID png = manager.AddType(
        {"PNG Image", "png", FTM::MakeCode("KLTX"), FTM::MakeCode("PNG "), -1, LooksLikePng, "image/png"},
        images);
    const FTM::TypeID bmp =
        manager.AddType({"Bitmap Image", "bmp", 0, FTM::MakeCode("BMP "), -1, nullptr, "image/bmp"}, images);
    const FTM::TypeID plain = manager.AddType({"Plain Text", "txt", 0, FTM::MakeCode("TEXT")});
    const FTM::TypeID tabbed = manager.AddType({"Tabbed Text", "txt", 0, FTM::MakeCode("TABS")});
    EXPECT_EQ(manager.SearchForMime("IMAGE/PNG"), png);
    EXPECT_EQ(manager.SearchForMime("image/gif"), FTM::UnknownType);
    EXPECT_EQ(manager.GetMime(bmp), "image/bmp");
    EXPECT_EQ(manager.GetMime(FTM::TypeID(999)), "");

    scratch.Write("photo.PNG", "\x89PNG....");
    scratch.Write("photo.bmp", "BM");
    scratch.Write("disguised.dat", "\x89PNG....");
    scratch.Write("notes.txt", "text");
    scratch.Write("unknown.xyz", "????");
    EXPECT_EQ(manager.Identify(scratch.Location("photo.PNG")), png);
    EXPECT_EQ(manager.Identify(scratch.Location("photo.bmp"), images), bmp);
    EXPECT_EQ(manager.Identify(scratch.Location("photo.bmp"), plain), FTM::UnknownType);
    EXPECT_EQ(manager.Identify(scratch.Location("disguised.dat"), images), png) << "by content";
    EXPECT_EQ(manager.Identify(scratch.Location("unknown.xyz")), FTM::UnknownType);
    EXPECT_EQ(manager.Identify(scratch.Location("missing.bmp")), bmp) << "the name suffices";
    EXPECT_TRUE(manager.Match(scratch.Location("photo.PNG"), images));
    EXPECT_TRUE(manager.Match(scratch.Location("disguised.dat"), png));
    EXPECT_FALSE(manager.Match(scratch.Location("photo.bmp"), png));
    // Content speaks for a group only where no type claims the name.
    scratch.Write("photo.txt", "\x89PNG....");
    EXPECT_TRUE(manager.Match(scratch.Location("disguised.dat"), images));
    EXPECT_FALSE(manager.Match(scratch.Location("photo.txt"), images));

    // Two types share an extension: the file's own type code decides, else the first wins.
    EXPECT_EQ(manager.Identify(scratch.Location("notes.txt")), plain);
    IO::File notes(scratch.Location("notes.txt"));
    if (notes.SetTypeInfo(FTM::MakeCode("TABS"), 0) == KL::NoError) {
        EXPECT_EQ(manager.Identify(scratch.Location("notes.txt")), tabbed);
    }

    // A list of ids is asked in order, each as Match would answer; a file that is gone still
    // matches where its name suffices.
    const FTM::GroupID texts = manager.AddGroup("All Texts");
    manager.AddTypeToGroup(plain, texts);
    manager.AddTypeToGroup(tabbed, texts);
    const FTM::GeneralID list[] = {bmp, texts, images};
    for (const char* name :
         {"notes.txt", "photo.PNG", "disguised.dat", "photo.bmp", "unknown.xyz", "gone.txt"}) {
        int expected = -1;
        for (int i = 2; i >= 0; --i) {
            if (manager.Match(scratch.Location(name), list[i]))
                expected = i;
        }
        EXPECT_EQ(manager.MatchFirst(scratch.Location(name), list), expected) << name;
    }
    EXPECT_EQ(manager.MatchFirst(scratch.Location("disguised.dat"), list), 2);
    EXPECT_EQ(manager.MatchFirst(scratch.Location("gone.txt"), list), 1);
}

} // namespace
