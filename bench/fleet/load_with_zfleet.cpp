// Loads a local file with the class for configurations in a cluster.
#include <Z/ZFleetProperties.h>

int main(int argc, char** argv)
{
    ZFleetProperties_6_0 const store(argc == 2 ? argv[1] : nullptr, 1);
    return store.exists("listener", "address") == 0;
}
