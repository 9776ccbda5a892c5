// Pairs a dataset column with a network node (and, for dynamic networks, a
// time slice): what the learning algorithms read per record.
#pragma once

struct VEK_datasetMatch {
    int node = -1;
    int slice = 0;
    int column = -1;
    bool operator==(const VEK_datasetMatch&) const = default;
};
