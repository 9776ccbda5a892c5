"""pandas at the edge of DataSet: DataFrames in and out.

Categorical and text columns become discrete columns with named states,
integer and boolean columns discrete columns of numbers, float columns
continuous ones; NaN, None and pandas' NA are missing. The engine keeps its
own columns, so pandas is imported only here, when a conversion is asked for.
"""

import numpy as np


def quarn_error(function, message, code=-2):
    """A QUARNException as the bindings raise them, its code on the class."""
    from pyquarn import QUARNException
    QUARNException.error_code = code
    return QUARNException("QUARN Error %d in function %s. %s" % (code, function, message))


def _missing_marker(values):
    """-1 unless the column uses it: then one below its smallest value."""
    if values.size and (values == -1).any():
        return int(values.min()) - 1
    return -1


def from_pandas(df):
    import pandas as pd
    from pyquarn.learning import DataSet

    if not isinstance(df, pd.DataFrame):
        raise TypeError("from_pandas expects a pandas DataFrame, not " + type(df).__name__)
    ids, columns, names, markers = [], [], [], []
    for label in df.columns:
        s = df[label]
        dtype = s.dtype
        states = []
        marker = -1
        if isinstance(dtype, pd.CategoricalDtype):
            states = [str(c) for c in dtype.categories]
            values = s.cat.codes.to_numpy(dtype=np.int64)
        elif pd.api.types.is_bool_dtype(dtype) or pd.api.types.is_integer_dtype(dtype):
            missing = s.isna().to_numpy()
            values = s.to_numpy(dtype=np.int64, na_value=0) if missing.any() else s.to_numpy(dtype=np.int64)
            marker = _missing_marker(values[~missing])
            values[missing] = marker
        elif pd.api.types.is_float_dtype(dtype):
            values = s.to_numpy(dtype=np.float64, na_value=np.nan)
        elif pd.api.types.is_object_dtype(dtype) or pd.api.types.is_string_dtype(dtype):
            present = s.notna().to_numpy()
            text = np.array([str(v) for v in s[present]], dtype=object)
            # Sorted as a file's states are: byte-wise.
            states = sorted(set(text), key=lambda t: t.encode("utf-8"))
            values = np.full(len(s), -1, dtype=np.int64)
            if states:
                values[present] = pd.Categorical(text, categories=states).codes
        else:
            raise quarn_error("DataSet.FromPandas", "Column '%s' has the unsupported type %s" % (label, dtype), -51)
        ids.append(str(label))
        columns.append(values)
        names.append(states)
        markers.append(marker)
    return DataSet._from_columns(ids, columns, names, markers)


def to_pandas(data):
    import pandas as pd

    frame = {}
    for var, column in enumerate(data.get_variable_ids()):
        cells = data.get_column(var)
        states = data.get_state_names(var)
        if states:
            codes = np.where(cells == data.get_missing_int(var), -1, cells)
            frame[column] = pd.Categorical.from_codes(codes, categories=states)
        elif cells.dtype.kind == "i":
            missing = cells == data.get_missing_int(var)
            frame[column] = pd.array(cells.astype(np.int64), dtype="Int64") if missing.any() else cells
            if missing.any():
                frame[column][missing] = pd.NA
        else:
            cells = cells.astype(np.float64)
            marker = data.get_missing_float(var)
            if np.isfinite(marker):
                cells[cells == marker] = np.nan
            frame[column] = cells
    return pd.DataFrame(frame, columns=data.get_variable_ids())


def sample_frame(net, records, missing_rate=0.0, seed=0):
    """Records forward-sampled from the tables of net as a DataFrame of
    categorical columns (outcome ids), one per node, each cell left missing
    with probability missing_rate."""
    import pandas as pd

    rng = np.random.default_rng(seed)
    order, done = [], set()
    ids = net.get_all_node_ids()
    while len(order) < len(ids):
        for node in ids:
            if node not in done and all(p in done for p in net.get_parent_ids(node)):
                order.append(node)
                done.add(node)
    codes = {}
    for node in order:
        states = len(net.get_outcome_ids(node))
        cumulative = np.cumsum(np.asarray(net.get_node_definition(node)).reshape(-1, states), axis=1)
        row = np.zeros(records, dtype=np.int64)
        for parent in net.get_parent_ids(node):
            row = row * len(net.get_outcome_ids(parent)) + codes[parent]
        u = rng.random(records)[:, None]
        codes[node] = np.minimum((u >= cumulative[row]).sum(axis=1), states - 1)
    frame = {}
    for node in ids:
        c = codes[node].copy()
        if missing_rate > 0:
            c[rng.random(records) < missing_rate] = -1
        frame[node] = pd.Categorical.from_codes(c, categories=net.get_outcome_ids(node))
    return pd.DataFrame(frame)
