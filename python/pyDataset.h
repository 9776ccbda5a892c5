// The Python DataSet class: owns one engine dataset.
#pragma once

#include "learning/dataset.h"
#include "pyWrapper.h"

class PyDataset : public PyWrapper {
public:
    VEK_dataset data;
};
