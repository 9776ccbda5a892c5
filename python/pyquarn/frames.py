"""Batch inference over pandas DataFrames and datasets as DataFrames.

pandas (and tqdm, for a progress bar) are imported when first used, so that
``import pyquarn`` needs neither.
"""
import importlib

import numpy as np

import pyquarn

# Rows handed to the engine per call: small enough for a lively progress bar,
# large enough that the call overhead does not show.
CHUNK_ROWS = 2000
# Runs shorter than this finish before a progress bar would tell anything.
PROGRESS_ROWS = 20000


def _fail(code, message):
    """Raises QUARNException the way the compiled methods do."""
    pyquarn.QUARNException.error_code = code
    raise pyquarn.QUARNException("QUARN Error %d in function Network.QueryBatch. %s" % (code, message))


def _require(name, package):
    try:
        return importlib.import_module(name)
    except ImportError:
        raise ImportError("%s needs the %s package (Debian: python3-%s)" % (package, name, name)) from None


def _column_codes(pd, net, column, series):
    """Outcome indices of one evidence column, -1 where unobserved."""
    ids = net.get_outcome_ids(column)
    if pd.api.types.is_bool_dtype(series.dtype):
        _fail(-2, "Column '%s' holds booleans; give outcome ids or indices" % column)
    if pd.api.types.is_numeric_dtype(series.dtype):
        values = series.to_numpy(dtype=float, na_value=np.nan)
        seen = ~np.isnan(values)
        bad = seen & ((values != np.floor(values)) | (values < 0) | (values >= len(ids)))
        if bad.any():
            _fail(-2, "Column '%s' holds %r, which is not an outcome index of node '%s' (0..%d)"
                  % (column, values[bad][0], column, len(ids) - 1))
        return np.where(seen, values, -1).astype(np.int32)
    codes = pd.Categorical(series, categories=ids).codes.astype(np.int32)
    unknown = (codes < 0) & series.notna().to_numpy()
    if unknown.any():
        _fail(-2, "Column '%s' holds %r, which is not an outcome of node '%s'"
              % (column, series[unknown].iloc[0], column))
    return codes


def _progress(rows):
    if rows < PROGRESS_ROWS:
        return None
    try:
        from tqdm import tqdm
    except ImportError:
        return None
    # disable=None: no bar when stderr is not a terminal.
    return tqdm(total=rows, unit="rows", disable=None)


def query_batch(net, df, targets=None, kind="posteriors"):
    """Beliefs for every row of df; see Network.query_batch."""
    pd = _require("pandas", "query_batch")
    if not isinstance(df, pd.DataFrame):
        raise TypeError("query_batch needs a pandas DataFrame, got %s" % type(df).__name__)
    if kind not in ("posteriors", "mpe"):
        _fail(-2, "kind must be 'posteriors' or 'mpe', got %r" % (kind,))
    columns = [str(c) for c in df.columns]
    for c in columns:
        if c not in net:
            _fail(-2, "Column '%s' names no node of the network" % c)
    if targets is None:
        observed = set(columns)
        targets = [n for n in net if n not in observed]
    elif isinstance(targets, str):
        targets = [targets]
    targets = [t if isinstance(t, str) else net.get_node_id(t) for t in targets]
    for t in targets:
        if t not in net:
            _fail(-2, "Target '%s' names no node of the network" % t)

    codes = np.empty((len(df), len(columns)), dtype=np.int32)
    for i, c in enumerate(columns):
        codes[:, i] = _column_codes(pd, net, c, df.iloc[:, i])
    handles = [net.get_node(c) for c in columns]
    target_handles = [net.get_node(t) for t in targets]
    posteriors = kind == "posteriors"

    bar = _progress(len(df))
    parts = []
    try:
        for start in range(0, max(len(df), 1), CHUNK_ROWS):
            parts.append(net._query_rows(codes[start:start + CHUNK_ROWS], handles, target_handles, posteriors))
            if bar is not None:
                bar.update(len(parts[-1]))
    finally:
        if bar is not None:
            bar.close()
    result = np.concatenate(parts) if parts else None

    if posteriors:
        header = pd.MultiIndex.from_tuples(
            [(t, o) for t in targets for o in net.get_outcome_ids(t)], names=["node", "outcome"])
        return pd.DataFrame(result, index=df.index, columns=header)
    return pd.DataFrame({t: pd.Categorical.from_codes(result[:, i], categories=net.get_outcome_ids(t))
                         for i, t in enumerate(targets)}, index=df.index)


def dataset_frame(data):
    """A DataFrame of a DataSet: categorical columns of state names where a
    column has them, numbers otherwise, missing cells as NaN."""
    pd = _require("pandas", "as_dataframe")
    frame = {}
    for v, name in enumerate(data.get_variable_ids()):
        if data.is_discrete(v):
            values = np.asarray(data.get_int_data(v), dtype=np.int64)
            names = data.get_state_names(v)
            missing = values == data.get_missing_int(v)
            if names:
                frame[name] = pd.Categorical.from_codes(np.where(missing, -1, values), categories=names)
            else:
                frame[name] = pd.array(np.where(missing, 0, values), dtype="Int64")
                frame[name][missing] = pd.NA
        else:
            values = np.asarray(data.get_float_data(v), dtype=np.float64)
            values[[data.is_missing(v, r) for r in range(len(values))]] = np.nan
            frame[name] = values
    return pd.DataFrame(frame)
