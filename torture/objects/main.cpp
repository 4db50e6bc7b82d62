// What befalls the objects that processes share: made by many at once, by one that dies, by strangers.
#include "objects/Objects.h"

int main(int argc, char** argv) {
    using namespace vqtorture;
    return runOneOf({{"crowd", crowd},
                     {"killed_creator", killedCreator},
                     {"planted", planted},
                     {"attacked", attacked},
                     {"permissions", permissions},
                     {"protected", protectedLinks},
                     {"pid_namespaces", pidNamespaces}},
                    argc, argv);
}
