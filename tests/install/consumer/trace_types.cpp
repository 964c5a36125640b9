// Writes the types of the catalogue into the trace.
#include <veltor/cfg_admin.h>
#include <veltor/ldtr.h>
#include <veltor/platform.h>

#include <iostream>

int main()
{
    if (ldtr_init() != 0) {
        return 1;
    }
    const ldtr_formater_global trace(0x030A0000);
    int written = 0;
    for (int index = 0; index < cfg_attr_type_count(); ++index) {
        cfg_attr_type type;
        if (cfg_attr_type_at(index, &type) == LDAP_SUCCESS && trace(0xC8010000, "%s", type.name) == 0) {
            ++written;
        }
    }
    std::cout << written << " types, events " << trcEvents << '\n';
}
