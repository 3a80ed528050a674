// StoreChecks: values, failures and notices of a store in a cluster, as strings to compare.
#pragma once

#include <Z/ZException.h>
#include <Z/ZFleetProperties.h>
#include <Z/ZLCString.h>
#include <gtest/gtest.h>

#include <string>

#include "ModelCluster.h"

/// Returns the value of a key; "(none)" if it is missing.
inline std::string value(ZFleetProperties_6_0 const& store, char const* stanza, char const* key)
{
    ZLCString_6_0 text;
    store.getValue(stanza, key, text, 0, "(none)");
    return text.getChars();
}

/// The same in the stanza "s".
inline std::string value(ZFleetProperties_6_0 const& store, char const* key)
{
    return value(store, "s", key);
}

/// Returns the failure of `call`, which names a configuration, as code() does; "none" without one.
template <class Call>
std::string failure(Call call)
{
    try {
        call();
        return "none";
    } catch (ZPropertiesIOException_6_0 const& e) {
        EXPECT_EQ(0, std::string(e.propFile().getChars()).rfind("etcd://", 0));
        return std::string(e.api().getChars()) + " errno " + std::to_string(e.excerrno());
    }
}

/// Returns "CALL errno ERRNO".
inline std::string code(char const* call, int error)
{
    return std::string(call) + " errno " + std::to_string(error);
}

/// Records notices as "STYLE TYPE STANZA/KEY ", without the first two spaces.
class NoticeRecorder final : public ZObserverInterface_6_0 {
public:
    void update(ZObservableInterface_6_0*, ZObservedParm_6_0 const& parm) override
    {
        auto const& notice = dynamic_cast<ZPropertyChanged_6_0 const&>(parm);
        seen += std::to_string(notice.style()) + std::to_string(notice.type()) +
                notice.category().getChars() + "/" + notice.key().getChars() + " ";
    }

    std::string seen;
};

/// Replaces only the companion of "etcd://test/gateway", as an operator can do. Its only value is
/// "by hand", of the key "password" in `stanza`.
inline void putCompanionByHand(ModelCluster& cluster, char const* stanza)
{
    ZFleetProperties_6_0 other(1);
    other.setValue(stanza, "password", "by hand", 1);
    other.store("etcd://test/other");
    cluster.copy("/zfleet/6/cfg/other/hidden", "/zfleet/6/cfg/gateway/hidden");
}
