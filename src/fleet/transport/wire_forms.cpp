#include "transport/wire_forms.h"

#include <utility>

namespace zfleet {

namespace {

wire::Operation toWire(Operation const& operation)
{
    wire::Operation form;
    if (auto const* const range = std::get_if<Range>(&operation)) {
        *form.mutable_range() = zfleet::toWire(*range);
    } else if (auto const* const put = std::get_if<Put>(&operation)) {
        form.mutable_put()->set_key(put->key);
        form.mutable_put()->set_value(put->value);
        form.mutable_put()->set_lease(put->lease);
    } else {
        auto const& removal = std::get<Remove>(operation);
        form.mutable_removal()->set_key(removal.key);
        form.mutable_removal()->set_range_end(removal.end);
    }
    return form;
}

wire::Compare toWire(Condition const& condition)
{
    static constexpr wire::Compare::Result kRelations[] = {
        wire::Compare::EQUAL, wire::Compare::GREATER, wire::Compare::LESS,
        wire::Compare::NOT_EQUAL};
    wire::Compare form;
    form.set_result(kRelations[condition.relation]);
    form.set_key(condition.key);
    switch (condition.target) {
        case Condition::version:
            form.set_target(wire::Compare::VERSION);
            form.set_version(condition.operand);
            break;
        case Condition::createRevision:
            form.set_target(wire::Compare::CREATE);
            form.set_create_revision(condition.operand);
            break;
        case Condition::modRevision:
            form.set_target(wire::Compare::MOD);
            form.set_mod_revision(condition.operand);
            break;
        case Condition::value:
            form.set_target(wire::Compare::VALUE);
            form.set_value(condition.bytes);
            break;
        case Condition::lease:
            form.set_target(wire::Compare::LEASE);
            form.set_lease(condition.operand);
            break;
    }
    return form;
}

}  // namespace

wire::RangeRequest toWire(Range const& range)
{
    wire::RangeRequest form;
    form.set_key(range.key);
    form.set_range_end(range.end);
    form.set_limit(range.limit);
    form.set_revision(range.revision);
    form.set_keys_only(range.isKeysOnly);
    form.set_max_create_revision(range.maxCreateRevision);
    if (range.isDescending || range.isNewestFirst)
        form.set_order(wire::RangeRequest::DESCENDING);
    if (range.isNewestFirst)
        form.set_target(wire::RangeRequest::CREATE);
    return form;
}

wire::TxnRequest toWire(Transaction const& transaction)
{
    wire::TxnRequest form;
    for (Condition const& condition : transaction.conditions)
        *form.add_compare() = toWire(condition);
    for (Operation const& operation : transaction.success)
        *form.add_success() = toWire(operation);
    for (Operation const& operation : transaction.failure)
        *form.add_failure() = toWire(operation);
    return form;
}

Header fromWire(wire::Header const& header)
{
    return {header.cluster(), header.member(), header.revision(), header.term()};
}

RangeResult fromWire(wire::RangeResponse& response)
{
    RangeResult result;
    result.header = fromWire(response.header());
    result.hasMore = response.more();
    result.count = response.count();
    for (wire::KeyValue& entry : *response.mutable_kvs())
        result.entries.push_back({std::move(*entry.mutable_key()),
                                  std::move(*entry.mutable_value()), entry.create_revision(),
                                  entry.mod_revision(), entry.version(), entry.lease()});
    return result;
}

TransactionResult fromWire(wire::TxnResponse& response)
{
    TransactionResult result;
    result.header = fromWire(response.header());
    result.hasSucceeded = response.succeeded();
    for (wire::OperationAnswer& answer : *response.mutable_responses())
        if (answer.has_range())
            result.ranges.push_back(fromWire(*answer.mutable_range()));
    return result;
}

}  // namespace zfleet
