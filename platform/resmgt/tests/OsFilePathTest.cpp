#include "OsFilePath.h"
#include "ExBase.h"
#include "XmlDocument.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include "TempFolderTest.h"

using namespace Vn;

TEST(OsFilePath, PartsOfAPath) {
    OsFilePath p("/presets/Looks/warm.grade.qnpreset");
    EXPECT_EQ(p.getFileName(), "warm.grade.qnpreset");
    EXPECT_EQ(p.getBaseName(), "warm.grade");
    EXPECT_EQ(p.getBaseName(OsFilePath::WITH_EXTENSION), "warm.grade.qnpreset");
    EXPECT_EQ(p.getExtension(), "qnpreset");
    EXPECT_EQ(p.getParent().getString(), "/presets/Looks");
    EXPECT_EQ(p.getRoot().getString(), "/");
    EXPECT_EQ(OsFilePath("/a").getParent().getString(), "/");
    EXPECT_EQ(OsFilePath("name").getParent().getString(), "");
    EXPECT_EQ(OsFilePath("rel/dir/").getFileName(), "dir");
    EXPECT_EQ(OsFilePath("rel/dir/").getParent().getString(), "rel");
    EXPECT_TRUE(OsFilePath("rel/x").getRoot().isEmpty());
    // A leading point starts no extension.
    EXPECT_EQ(OsFilePath("/a/.hidden").getBaseName(), ".hidden");
    EXPECT_EQ(OsFilePath("/a/.hidden").getExtension(), "");
    EXPECT_EQ(OsFilePath("/a/b.").getExtension(), "");
    EXPECT_EQ(OsFilePath("/a/").append("b").getString(), "/a/b");
    EXPECT_EQ(OsFilePath("/a").append("/b").getString(), "/a/b");
    EXPECT_EQ(OsFilePath().append("b").getString(), "b");
}

using OsFsUtilsTest = VnTest::TempFolderTest;

TEST_F(OsFsUtilsTest, CreateFilePathMakesTheMissingFolders) {
    OsFilePath const file = at("a/b/c/preset.qnpreset");
    OsFsUtils::createFilePath(file, file.getRoot(), OsFileTypes::Permissions(3, 3, 3));
    EXPECT_TRUE(OsFsUtils::isFolder(at("a/b/c")));
    EXPECT_FALSE(OsFsUtils::fileExists(file));
    // Read access to a folder brings search access: a file can be made inside.
    struct stat st {};
    ASSERT_EQ(::stat(at("a/b").getString().c_str(), &st), 0);
    EXPECT_TRUE(st.st_mode & S_IXUSR);
    EXPECT_TRUE(st.st_mode & S_IWUSR);
    put("a/b/c/preset.qnpreset", "x");
    EXPECT_TRUE(OsFsUtils::fileExists(file));
    // Again: nothing to do.
    OsFsUtils::createFilePath(file, OsFilePath(_dir.string()), OsFileTypes::Permissions(3, 0, 0));
    EXPECT_TRUE(OsFsUtils::removeFile(file));
    EXPECT_FALSE(OsFsUtils::removeFile(file));
}

TEST_F(OsFsUtilsTest, CreateFilePathRefusesWhatItCannotDo) {
    put("plain", "x");
    try {
        OsFilePath const f = at("plain/sub/p.qnpreset");
        OsFsUtils::createFilePath(f, f.getRoot(), OsFileTypes::Permissions(3, 3, 3));
        FAIL();
    } catch (ExBase const& e) {
        EXPECT_NE(e.getReason().find("a file stands there"), std::string::npos) << e.getReason();
    }
    EXPECT_THROW(OsFsUtils::createFilePath(at("x/y"), OsFilePath("/elsewhere"),
                                           OsFileTypes::Permissions(3, 3, 3)),
                 ExBase);
    EXPECT_THROW(OsFsUtils::createFilePath(OsFilePath("rel/y"), OsFilePath("/"),
                                           OsFileTypes::Permissions(3, 3, 3)),
                 ExBase);
    EXPECT_FALSE(OsFsUtils::fileExists(at("x")));
    EXPECT_THROW(OsFileTypes::Permissions(8, 0, 0), ExBase);
    EXPECT_THROW(OsFileTypes::Permissions(0, -1, 0), ExBase);
}

TEST_F(OsFsUtilsTest, XmlDocumentLoadNamesTheFile) {
    put("good.xml", "<R><A x='1'/></R>");
    EXPECT_EQ(XmlDocument::load(at("good.xml").getString()).getRoot().getChildren("A").size(), 1u);
    put("bad.xml", "<R><A></R>");
    for (std::string const name : {"bad.xml", "missing.xml"}) {
        try {
            XmlDocument::load(at(name).getString());
            FAIL() << name;
        } catch (ExBase const& e) {
            EXPECT_NE(e.getReason().find(at(name).getString()), std::string::npos) << e.getReason();
        }
    }
}
