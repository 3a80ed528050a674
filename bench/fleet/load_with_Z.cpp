// Loads a local file with the foundation.
#include <Z/ZStanzaFileProperties.h>

int main(int argc, char** argv)
{
    ZStanzaFileProperties_6_0 const store(argc == 2 ? argv[1] : nullptr, 1);
    return store.exists("listener", "address") == 0;
}
