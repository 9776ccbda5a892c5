// Common base of the wrapper classes: backs __copy__ and __deepcopy__.
#pragma once

class PyWrapper {
public:
    virtual ~PyWrapper() = default;
};
