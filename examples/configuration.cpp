// Reads settings with their defaults, lists the file, and changes one value in it.
#include <cstdio>

#include "configfile.h"

int main(int argc, char** argv) {
    ConfigFile config;
    if (argc != 2 || config.OpenFile(argv[1]) == 0) {
        std::fprintf(stderr, "a configuration file is missing\n");
        return 1;
    }
    char address[64];
    unsigned int port = 0;
    signed char verbose = 0;
    config.ReadStrDef("Service", "Address", address, sizeof address, "127.0.0.1");
    config.ReadIntDef("Service", "Port", &port, 80);
    config.ReadBoolDef("Service", "Verbose", &verbose, 0);
    std::printf("%s:%u, %s\n", address, port, verbose != 0 ? "verbose" : "quiet");

    char group[64];
    char name[64];
    char value[256];
    for (auto more = config.GetFirstGroup(group, sizeof group); more != 0;
         more = config.GetNextGroup(group, sizeof group)) {
        for (auto line = config.GetFirstParam(group, name, sizeof name, value, sizeof value);
             line != 0; line = config.GetNextParam(name, sizeof name, value, sizeof value)) {
            std::printf("%s/%s is %s\n", group, name, value);
        }
    }

    config.WriteInt("Service", "Port", port + 1);
    return config.Close() != 0 ? 0 : 1; // which writes the file
}
