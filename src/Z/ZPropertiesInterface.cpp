#include "ZPropertiesInterface.h"

#include "ZArrayList.h"
#include "reporting/failures.h"

namespace {

// A factory rarely has more than a few paths.
constexpr unsigned kBuckets = 10;

constexpr char kSource[] = "src/Z/ZPropertiesInterface";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum ReportSite { reportInUnlock = 17, reportInFactory = 51 };

void unlockAtEnd(ZLockInterface_6_0& lock)
{
    zreporting::runInDestructor({kSource, reportInUnlock}, [&] { lock.unlock(); });
}

}  // namespace

ZPropertiesInterface_6_0::~ZPropertiesInterface_6_0() noexcept(false) = default;

ZAbstractProperties_6_0::ZAbstractProperties_6_0() = default;

ZAbstractProperties_6_0::ZAbstractProperties_6_0(ZAbstractProperties_6_0 const&) = default;

ZAbstractProperties_6_0::~ZAbstractProperties_6_0() = default;

ZAbstractProperties_6_0::ZPropResourceLock::ZPropResourceLock(ZLockInterface_6_0& lock)
    : lock_(lock)
{
    lock_.lock();
}

ZAbstractProperties_6_0::ZPropResourceLock::~ZPropResourceLock() noexcept(false)
{
    unlockAtEnd(lock_);
}

ZAbstractPropertiesFactory_6_0::ZAbstractPropertiesFactory_6_0() : map_(kBuckets, 0)
{
}

// The map cannot own paths and stores: an owning map clones its entries, and stores are not
// clonable.
ZAbstractPropertiesFactory_6_0::~ZAbstractPropertiesFactory_6_0()
{
    static constexpr zreporting::Site kSite = {kSource, reportInFactory};
    zreporting::runCleanup(kSite, [this] {
        ZArrayList_6_0 members(2 * map_.size(), 0);
        map_.listKeys(members);
        map_.listObjects(members);
        map_.removeAll();
        for (unsigned i = 0; i < members.size(); ++i)
            zreporting::runCleanup(kSite, [&] { delete members.get(i); });
    });
}

ZLock_6_0* ZPropRegistry_6_0::res_ = nullptr;

void ZPropRegistry_6_0::init()
{
    [[maybe_unused]] static ZLock_6_0* const lock = res_ = new ZLock_6_0;
}

ZPropRegistry_6_0::ZPropRegistry_6_0()
{
    init();
    res_->lock();
}

ZPropRegistry_6_0::~ZPropRegistry_6_0() noexcept(false)
{
    unlockAtEnd(*res_);
}
