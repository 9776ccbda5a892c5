"""Equation nodes: hybrid inference against closed forms, the discretized
method's convergence, value precedence, solving, user functions and bad
input."""
import math

import pytest

from pyquarn import BayesianAlgorithmType, DiscretizationInterval, NodeType
from conftest import quarn_error
from describe_util import assert_refused


def equations(net, texts, samples=40000):
    """Adds an equation node per "id = ..." text, in order."""
    for text in texts:
        node_id = text.split("=")[0].split()[0]
        net.add_node(NodeType.EQUATION, node_id)
        net.set_node_equation(node_id, text)
    net.set_sample_count(samples)
    net.set_rand_seed(11)


def gaussian_posterior(means, cov, observed, values, query):
    """Mean and variance of x[query] given x[observed] = values, by Gaussian
    conditioning with a small Gauss-Jordan solve."""
    k = len(observed)
    a = [[cov[i][j] for j in observed] + [values[n] - means[i]] for n, i in enumerate(observed)]
    b = [[cov[i][query]] for i in observed]
    rows = [a[r] + b[r] for r in range(k)]
    for c in range(k):
        p = rows[c][c]
        rows[c] = [x / p for x in rows[c]]
        for r in range(k):
            if r != c:
                f = rows[r][c]
                rows[r] = [x - f * y for x, y in zip(rows[r], rows[c])]
    shift = sum(cov[query][i] * rows[n][k] for n, i in enumerate(observed))
    shrink = sum(cov[query][i] * rows[n][k + 1] for n, i in enumerate(observed))
    return means[query] + shift, cov[query][query] - shrink


def linear_gaussian(coefs, noise, offsets):
    """Means and covariance of x_i = offset_i + sum_j coefs[i][j] x_j + N(0, noise_i)."""
    n = len(noise)
    mean, cov = [0.0] * n, [[0.0] * n for _ in range(n)]
    for i in range(n):
        mean[i] = offsets[i] + sum(c * mean[j] for j, c in coefs[i].items())
        for k in range(i):
            cov[i][k] = cov[k][i] = sum(c * cov[j][k] for j, c in coefs[i].items())
        cov[i][i] = noise[i] ** 2 + sum(c * cov[j][i] for j, c in coefs[i].items())
    return mean, cov


def test_linear_gaussian_posteriors_by_likelihood_weighting(net):
    # A small DAG with two observed nodes.
    texts = ["A = Normal(0, 1)", "B = Normal(2, 1.5)", "C = A + 2 * B + Normal(0, 1)", "D = C - A + Normal(0, 2)",
             "E = 3 * B + Normal(1, 1)"]
    coefs, noise, offsets = [{}, {}, {0: 1, 1: 2}, {2: 1, 0: -1}, {1: 3}], [1, 1.5, 1, 2, 1], [0, 2, 0, 0, 1]
    evidence = {3: 6.0, 4: 4.0}
    equations(net, texts, samples=200000)
    ids = [t.split("=")[0].split()[0] for t in texts]
    for i, v in evidence.items():
        net.set_cont_evidence(ids[i], v)
    net.update_beliefs()
    mean, cov = linear_gaussian(coefs, noise, offsets)
    for q in range(len(ids)):
        if q in evidence:
            assert net.get_node_value(ids[q]) == [evidence[q]]
            continue
        m, var = gaussian_posterior(mean, cov, list(evidence), [evidence[i] for i in evidence], q)
        # Standard errors of weighted estimates, with a generous effective
        # sample size for the weights' spread.
        se = math.sqrt(var / 20000)
        assert abs(net.get_node_mean(ids[q]) - m) < 3 * se
        assert abs(net.get_node_std_dev(ids[q]) ** 2 - var) < 3 * var * math.sqrt(2 / 20000)


def test_discretization_converges_as_intervals_shrink(net):
    equations(net, ["A = Normal(0, 1)", "B = A + Normal(0, 1)"])
    net.set_cont_evidence("B", 1.3)
    net.set_discretization_sample_count(4000)
    for node_id in "AB":
        net.set_node_equation_bounds(node_id, -6, 6)
    errors = []
    for count in (5, 20, 80):
        for node_id in "AB":
            net.set_node_equation_uniform_discretization(node_id, count)
        net.update_beliefs()
        assert net.is_value_discretized("A")
        probabilities = net.get_node_value("A")
        assert len(probabilities) == count and abs(sum(probabilities) - 1) < 1e-9
        errors.append(abs(net.get_node_mean("A") - 0.65))
    assert errors[0] > errors[1] > errors[2] and errors[2] < 0.05
    net.set_bayesian_algorithm(BayesianAlgorithmType.L_SAMPLING)
    net.update_beliefs()
    assert not net.is_value_discretized("A")


def test_mixture_of_a_discrete_parent_and_a_continuous_child(net):
    s = net.add_node(NodeType.CPT, "S")
    net.set_node_definition(s, [0.3, 0.7])
    equations(net, ["X = If(S == 0, Normal(0, 1), Normal(3, 0.5))"], samples=200000)

    def pdf(x, m, sd):
        return math.exp(-0.5 * ((x - m) / sd) ** 2) / (sd * math.sqrt(2 * math.pi))

    # Mean and variance by numerical integration of the mixture density.
    grid = [-8 + i * 0.001 for i in range(16001)]
    dens = [0.3 * pdf(x, 0, 1) + 0.7 * pdf(x, 3, 0.5) for x in grid]
    mean = sum(x * d for x, d in zip(grid, dens)) * 0.001
    var = sum((x - mean) ** 2 * d for x, d in zip(grid, dens)) * 0.001
    net.update_beliefs()
    assert abs(net.get_node_mean("X") - mean) < 3 * math.sqrt(var / 200000)
    assert abs(net.get_node_std_dev("X") ** 2 - var) < 0.03 * var
    net.set_cont_evidence("X", 1.2)
    with quarn_error(-2, contains="no density"):
        net.update_beliefs()
    net.clear_all_evidence()
    # C reads S with errors; observed, it informs S by Bayes' rule, controlled
    # it does not, and its child Y follows the value it was set to.
    c = net.add_node(NodeType.CPT, "C")
    net.add_arc(s, c)
    net.set_node_definition(c, [0.9, 0.1, 0.2, 0.8])
    net.add_node(NodeType.EQUATION, "Y")
    net.set_node_equation("Y", "Y = 5 * C + Normal(0, 1)")
    for control, posterior in ((False, 0.3 * 0.9 / (0.3 * 0.9 + 0.7 * 0.2)), (True, 0.3)):
        if control:
            net.set_controlled_value(c, 0)
        else:
            net.set_evidence(c, 0)
        net.update_beliefs()
        assert abs(net.get_node_value(s)[0] - posterior) < 3 * math.sqrt(posterior * (1 - posterior) / 200000)
        assert abs(net.get_node_mean("Y")) < 3 / math.sqrt(200000)
        net.clear_all_evidence()


def test_value_precedence_and_equation_queries(net):
    equations(net, ["K = 2 ^ 3 + 1", "D = K * 2", "R = Uniform(0, K)"], samples=500)
    assert net.is_node_equation_constant("K") and net.get_node_equation_constant("K") == 9
    assert net.is_node_equation_deterministic("D") and not net.is_node_equation_constant("D")
    assert not net.is_node_equation_deterministic("R")
    net.update_beliefs()
    assert net.get_node_value("D") == [18.0]
    samples = net.get_node_value("R")
    assert len(samples) == 500 and 0 <= min(samples) and max(samples) <= 9
    stats = net.get_node_sample_stats("R")
    assert stats[2:] == [min(samples), max(samples)] and abs(stats[0] - sum(samples) / 500) < 1e-9
    assert not net.is_value_discretized("R")


def test_solving_and_user_functions(net):
    net.set_ext_functions(["sq(x) = x * x", "hyp(a, b) = Sqrt(sq(a) + sq(b))"])
    equations(net, ["A = Normal(1, 1)", "B = 4", "C = hyp(A, B)", "X + B = 2 * A", "Y = Exp(A)"])
    net.set_node_equation("Y", "Ln(Y) * 2 = A")
    assert net.get_node_equation("X") == "X = 2 * A - B"
    assert net.get_node_equation("Y") == "Y = Exp(A / 2)"
    net.set_node_equation_bounds("A", -5, 7)
    net.set_node_equation_discretization("A", [DiscretizationInterval("low", 0.5), DiscretizationInterval("", 7)])
    assert [(i.id, i.upper_bound) for i in net.get_node_equation_discretization("A")] == [("low", 0.5), ("State1", 7)]
    net.update_beliefs()
    # E[hypot(A, 4)] for A ~ N(1, 1), by quadrature.
    grid = [-7 + i * 0.001 for i in range(16001)]
    want = sum(math.hypot(x, 4) * math.exp(-0.5 * (x - 1) ** 2) for x in grid) * 0.001 / math.sqrt(2 * math.pi)
    assert abs(net.get_node_mean("C") - want) < 0.01


BAD = [
    ("X = A +", -127, "position 7"),
    ("X = A $ 2", -127, "position 6"),
    ("X = Q + 1", -2, "Unknown variable 'Q'"),
    ("X = Normal(1)", -127, "takes 2 arguments"),
    ("X * X = 4", -2, "more than once"),
    ("X = A + X", -2, "more than once"),
    ("Abs(X) = A", -2, "no inverse"),
    ("A = 1", -2, "does not contain 'X'"),
]


@pytest.mark.parametrize("text, code, words", BAD)
def test_bad_equations_change_nothing(net, text, code, words):
    equations(net, ["A = Normal(0, 1)", "X = A"])
    message = assert_refused(net, code, net.set_node_equation, "X", text)
    assert words in message


def test_other_bad_input_changes_nothing(net):
    equations(net, ["A = Normal(0, 1)", "B = A + 1"])
    d = net.add_node(NodeType.CPT, "D")
    assert "cycle" in assert_refused(net, -11, net.set_node_equation, "A", "A = B * 2")
    assert_refused(net, -2, net.set_node_equation_bounds, "A", 3, 1)
    net.set_node_equation_bounds("A", -3, 3)
    bad = [DiscretizationInterval("a", 1), DiscretizationInterval("b", 0.5)]
    assert "not above" in assert_refused(net, -2, net.set_node_equation_discretization, "A", bad)
    assert_refused(net, -2, net.set_node_equation_uniform_discretization, "A", 0)
    assert_refused(net, -51, net.set_node_equation, d, "D = 1")
    assert_refused(net, -127, net.set_ext_functions, ["f(x) = y"])
    net.set_node_equation("B", "B = 1")
    assert_refused(net, -2, net.set_cont_evidence, "A", float("nan"))


def test_samples_without_a_value_are_rejected_and_counted(net):
    equations(net, ["A = Bernoulli(0.5)", "B = 1 / A"], samples=1000)
    net.update_beliefs()
    assert net.get_node_value("B") == [1.0]
    net.set_node_equation("A", "A = 0")
    with quarn_error(-5, contains="1000 rejected"):
        net.update_beliefs()


def test_mau_expressions_combine_utilities_per_outcome(net):
    from pyquarn import InfluenceDiagramAlgorithmType
    net.add_node(NodeType.DECISION, "D")
    net.add_node(NodeType.CPT, "C")
    net.set_node_definition("C", [0.3, 0.7])
    for node_id, parents, table in (("U1", "DC", [10, 0, 2, 8]), ("U2", "C", [5, 1])):
        net.add_node(NodeType.UTILITY, node_id)
        for p in parents:
            net.add_arc(p, node_id)
        net.set_node_definition(node_id, table)
    net.add_node(NodeType.MAU, "M")
    net.add_arc("U1", "M")
    net.add_arc("U2", "M")
    net.set_mau_expressions("M", ["U1 * U2 / 10 + Max(U1, U2)"])

    def f(a, b):
        return a * b / 10 + max(a, b)

    want = [0.3 * f(10, 5) + 0.7 * f(0, 1), 0.3 * f(2, 5) + 0.7 * f(8, 1)]
    for algorithm in InfluenceDiagramAlgorithmType.__members__.values():
        net.set_influence_diagram_algorithm(algorithm)
        net.update_beliefs()
        assert net.get_node_value("D") == pytest.approx(want)
    net.set_mau_expressions("M", ["U1 + Q"])
    with quarn_error(-2, contains="'Q', which is not a parent"):
        net.update_beliefs()
