#include "plain_functions.h"

#include "configuration/parsing.h"
#include "configuration/session.h"
#include "translate_failures.h"

using zfleet::Session;

namespace {

constexpr char kSource[] = "src/fleet/Z/plain_functions";

Session& sessionOf(void* session)
{
    return *static_cast<Session*>(session);
}

}  // namespace

void* zfleetSessionOpen_6_0()
{
    return new Session;
}

void zfleetSessionClose_6_0(void* session)
{
    delete static_cast<Session*>(session);
}

ZSCFData_6_0* zfleetSessionLoad_6_0(void* session, char const* path, ZSCFData_6_0 const* prototype)
{
    std::unique_ptr<ZSCFData_6_0> contents;
    zfleet::translateFailures(kSource, path, [&] {
        Session::Loaded loaded = sessionOf(session).load(path);
        contents = zfleet::parseContents(path, loaded.snapshot.contents, *prototype);
        sessionOf(session).accept(path, std::move(loaded));
    });
    return contents.release();
}

ZSCFData_6_0* zfleetSessionStore_6_0(void* session, char const* path, ZSCFData_6_0 const* cache)
{
    std::unique_ptr<ZSCFData_6_0> contents;
    zfleet::translateFailures(kSource, path, [&] {
        Session::Stored const stored =
            sessionOf(session).store(path, zfleet::formatContents(*cache), *cache);
        if (!stored.isMerged)
            return;
        contents = zfleet::parseContents(path, stored.contents, *cache);
        sessionOf(session).acceptMerge(path);
    });
    return contents.release();
}
