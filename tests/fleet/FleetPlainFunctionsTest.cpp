// The plain functions with configurations in a cluster.
#include <Z/ZFleetProperties.h>
#include <Z/zproperties_c.h>
#include <errno.h>
#include <gtest/gtest.h>

#include "FleetFile.h"
#include "ModelCluster.h"

namespace {

constexpr char kPath[] = "etcd://test/gateway";
constexpr char kText[] = "/zfleet/6/cfg/gateway/text";

class FleetPlainFunctions : public testing::Test {
protected:
    FleetPlainFunctions()
    {
        cluster_.put(kText, "# top\n[s]\nx = 1\ny = 1\n");
        // This links the library, so that the foundation finds it.
        EXPECT_EQ(1, ZFleetProperties_6_0::isFleetPath(kPath));
    }

    static std::string value(ZPROP_handle* handle, char const* key)
    {
        int code = zpropOk;
        char* const text = zstzPropGetStringValue_6_0(handle, "s", key, 0, &code);
        std::string const result = code != zpropOk   ? "code " + std::to_string(code)
                                   : text == nullptr ? ""
                                                     : text;
        zstzPropFree_6_0(text);
        return result;
    }

    // Returns "errno ERRNO: FILE", or "line LINE: FILE", of the last failure.
    static std::string lastFailure()
    {
        ZPROPError error{};
        error.size = sizeof error;
        EXPECT_EQ(zpropOk, zstzPropGetLastError_6_0(&error));
        EXPECT_NE('\0', *error.text);
        return (error.line != 0 ? "line " + std::to_string(error.line)
                                : "errno " + std::to_string(error.errorNumber)) +
               ": " + error.file;
    }

    static std::string failureOf(int error, std::string const& path = kPath)
    {
        return "errno " + std::to_string(error) + ": " + path;
    }

    ModelCluster cluster_;
    FleetFile const file_{FleetFile::textFor({cluster_.address()}) + "budget = 60\n"};
};

}  // namespace

TEST_F(FleetPlainFunctions, ConfigurationIsReadAndStored)
{
    ZPROP_handle* handle = nullptr;
    ASSERT_EQ(zpropOk, zstzPropOpen_6_0(&handle, kPath, zpropOpenUpdate));
    EXPECT_EQ("1", value(handle, "x"));
    EXPECT_EQ(zpropOk, zstzPropSetStringValue_6_0(handle, "s", "x", "2"));
    EXPECT_EQ(zpropOk, zstzPropSetObfuscatedValue_6_0(handle, "s", "p", "secret"));
    EXPECT_EQ(zpropOk, zstzPropStore_6_0(handle, nullptr));
    EXPECT_EQ("# top\n[s]\nx = 2\ny = 1\n", cluster_.get(kText));
    int code = zpropOk;
    EXPECT_EQ(0, zstzPropIsModified_6_0(handle, &code));
    // Another program's change is merged and taken over.
    cluster_.put(kText, "# top\n[s]\nx = 2\ny = 7\n");
    EXPECT_EQ(zpropOk, zstzPropSetStringValue_6_0(handle, "s", "x", "3"));
    EXPECT_EQ(zpropOk, zstzPropStore_6_0(handle, nullptr));
    EXPECT_EQ("# top\n[s]\nx = 3\ny = 7\n", cluster_.get(kText));
    EXPECT_EQ("7", value(handle, "y"));
    EXPECT_EQ("secret", value(handle, "p"));
    cluster_.put(kText, "[s]\nx = 9\n");
    EXPECT_EQ(zpropOk, zstzPropReload_6_0(handle));
    EXPECT_EQ("9", value(handle, "x"));
    zstzPropClose_6_0(handle);
}

TEST_F(FleetPlainFunctions, LocalFileIsCopiedIntoTheCluster)
{
    std::string const path = file_.directory().write("local.conf", "[s]\nx = 5\n");
    ZPROP_handle* handle = nullptr;
    ASSERT_EQ(zpropOk, zstzPropOpen_6_0(&handle, path.c_str(), zpropOpenUpdate));
    EXPECT_EQ(zpropOk, zstzPropStore_6_0(handle, "etcd://test/copy"));
    EXPECT_EQ("[s]\nx = 5\n", cluster_.get("/zfleet/6/cfg/copy/text"));
    zstzPropClose_6_0(handle);
    ASSERT_EQ(zpropOk, zstzPropOpen_6_0(&handle, kPath, zpropOpenUpdate));
    EXPECT_EQ(zpropOk, zstzPropStore_6_0(handle, path.c_str()));
    EXPECT_EQ("# top\n[s]\nx = 1\ny = 1\n", file_.directory().read("local.conf"));
    zstzPropClose_6_0(handle);
}

TEST_F(FleetPlainFunctions, FailuresAreRecorded)
{
    ZPROP_handle* handle = nullptr;
    EXPECT_EQ(zpropOpenStoreFailed, zstzPropOpen_6_0(&handle, "etcd://test/none", zpropOpenRead));
    EXPECT_EQ(nullptr, handle);
    EXPECT_EQ(zpropUnsupported, zstzPropOpenAs_6_0(&handle, kPath, zpropOpenRead, "systemd"));
    // The name does not determine a dialect.
    cluster_.put("/zfleet/6/cfg/unit.service/text", "[s]\nx = 1\n");
    ASSERT_EQ(zpropOk,
              zstzPropOpenAs_6_0(&handle, "etcd://test/unit.service", zpropOpenRead, nullptr));
    int code = zpropOk;
    char* const dialect = zstzPropGetDialect_6_0(handle, &code);
    EXPECT_STREQ("stanza", dialect);
    zstzPropFree_6_0(dialect);
    // A key that both have changed.
    EXPECT_EQ(zpropOk, zstzPropSetStringValue_6_0(handle, "s", "x", "2"));
    cluster_.put("/zfleet/6/cfg/unit.service/text", "[s]\nx = 3\n");
    EXPECT_EQ(zpropOpenStoreFailed, zstzPropStore_6_0(handle, nullptr));
    EXPECT_EQ(1, zstzPropIsModified_6_0(handle, &code));
    zstzPropClose_6_0(handle);
}

TEST_F(FleetPlainFunctions, InvalidNamesAreRefused)
{
    ZPROP_handle* handle = nullptr;
    ASSERT_EQ(zpropOk, zstzPropOpen_6_0(&handle, kPath, zpropOpenUpdate));
    EXPECT_EQ(zpropOk, zstzPropSetStringValue_6_0(handle, "s", "x", "2"));
    std::string const longName = "etcd://test/" + std::string(256, 'x');
    for (char const* const path : {"etcd://", "etcd://test", "etcd://test/", "etcd:///name",
                                   "etcd://test/a/b", "etcd://test/..", "etcd://test/.",
                                   "etcd://../name", "etcd://test/a b", longName.c_str()}) {
        SCOPED_TRACE(path);
        ZPROP_handle* none = nullptr;
        EXPECT_EQ(zpropOpenStoreFailed, zstzPropOpen_6_0(&none, path, zpropOpenRead));
        EXPECT_EQ(failureOf(EINVAL, path), lastFailure());
        EXPECT_EQ(nullptr, none);
        EXPECT_EQ(zpropOpenStoreFailed, zstzPropStore_6_0(handle, path));
        EXPECT_EQ(failureOf(EINVAL, path), lastFailure());
    }
    EXPECT_EQ("2", value(handle, "x"));
    EXPECT_EQ(zpropOk, zstzPropStore_6_0(handle, nullptr));
    EXPECT_EQ("# top\n[s]\nx = 2\ny = 1\n", cluster_.get(kText));
    zstzPropClose_6_0(handle);
}

TEST_F(FleetPlainFunctions, BadContentsAndOtherClustersLeaveTheValues)
{
    ZPROP_handle* handle = nullptr;
    ASSERT_EQ(zpropOk, zstzPropOpen_6_0(&handle, kPath, zpropOpenUpdate));
    cluster_.put(kText, "[s]\nx = 3\n[t\n");
    EXPECT_EQ(zpropOpenStoreFailed, zstzPropReload_6_0(handle));
    EXPECT_EQ(std::string("line 3: ") + kPath, lastFailure());
    EXPECT_EQ("1", value(handle, "x"));
    cluster_.becomeAnother(2);
    EXPECT_EQ(zpropOpenStoreFailed, zstzPropReload_6_0(handle));
    EXPECT_EQ(failureOf(EREMCHG), lastFailure());
    EXPECT_EQ("1", value(handle, "x"));
    EXPECT_EQ(zpropOk, zstzPropSetStringValue_6_0(handle, "s", "x", "2"));
    EXPECT_EQ(zpropOpenStoreFailed, zstzPropStore_6_0(handle, nullptr));
    EXPECT_EQ(failureOf(EREMCHG), lastFailure());
    EXPECT_EQ("2", value(handle, "x"));
    EXPECT_EQ("[s]\nx = 3\n[t\n", cluster_.get(kText));
    zstzPropClose_6_0(handle);
}

TEST_F(FleetPlainFunctions, SizeIsLimited)
{
    ZPROP_handle* handle = nullptr;
    cluster_.put(kText, "[s]\nx = 1\n[large]\nk = 0\n");
    ASSERT_EQ(zpropOk, zstzPropOpen_6_0(&handle, kPath, zpropOpenUpdate));
    std::string const line(8000, 'x');
    for (int i = 0; i < 132; ++i)
        EXPECT_EQ(zpropOk, zstzPropSetStringValue_6_0(handle, "large", std::to_string(i).c_str(),
                                                      line.c_str()));
    EXPECT_EQ(zpropOpenStoreFailed, zstzPropStore_6_0(handle, nullptr));
    EXPECT_EQ(failureOf(EFBIG), lastFailure());
    EXPECT_EQ("[s]\nx = 1\n[large]\nk = 0\n", cluster_.get(kText));
    EXPECT_EQ(zpropOk, zstzPropRemoveStanza_6_0(handle, "large"));
    EXPECT_EQ(zpropOk, zstzPropStore_6_0(handle, nullptr));
    zstzPropClose_6_0(handle);
}
