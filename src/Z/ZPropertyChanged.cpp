#include "ZPropertyChanged.h"

ZPropertyChanged_6_0::ZPropertyChanged_6_0(PropertyStyle style, PropertyChangeType type,
                                           char const* category, char const* key)
    : style_(style), type_(type), category_(category), key_(key)
{
}

ZPropertyChanged_6_0::~ZPropertyChanged_6_0() = default;
