// The catalogue of attribute types, as administration tools see it. Everything in it is constant.
#include "LDIF_AttrType.h"
#include "LDIF_Exception.h"

#include "veltor/cfg_admin.h"

#include <cstddef>

using veltor::detail::namedTypes;

int cfg_attr_type_count(void)
{
    return static_cast<int>(namedTypes.size());
}

int cfg_attr_type_at(int index, cfg_attr_type* out)
{
    if (out == nullptr || index < 0 || index >= cfg_attr_type_count()) {
        return veltor::result::paramError;
    }
    const auto& [type, syntax] = namedTypes[static_cast<std::size_t>(index)];
    *out = {type->name, syntax, type->enumValues, type->bitmask, type->min, type->max, type->singleValued ? 1 : 0};
    return 0;
}
