// The Python Network class: the Python object is the engine network itself.
#pragma once

#include "network/network.h"
#include "pyWrapper.h"

class PyNetwork : public VEK_network, public PyWrapper {
public:
    PyNetwork() = default;
    PyNetwork(const PyNetwork& other) : VEK_network(other), PyWrapper() {}
};
