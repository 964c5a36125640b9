// The least that a C++ program linked with the LDAP client library costs: the start, and nothing behind it.
#include <ldap.h>
#include <string>

int main(int argc, char** argv)
{
    // Keeps both libraries linked; nobody asks for so many arguments.
    return argc > 1000 && std::string(argv[1]) == ldap_err2string(argc) ? 1 : 0;
}
