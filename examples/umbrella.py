"""A decision under uncertainty: take an umbrella or not, after reading the
forecast. pyquarn solves the influence diagram and reports the expected
utility of each option for every forecast, and the best policy."""

import pyquarn
from pyquarn import NodeType


def build():
    net = pyquarn.Network()
    net.set_id("umbrella")

    def states(node_id, *ids):
        for i, s in enumerate(ids):
            if i < 2:
                net.set_outcome_id(node_id, i, s)
            else:
                net.add_outcome(node_id, s)

    net.add_node(NodeType.CPT, "weather")
    states("weather", "rain", "dry")
    net.set_node_definition("weather", [0.3, 0.7])

    net.add_node(NodeType.CPT, "forecast")
    states("forecast", "rainy", "cloudy", "sunny")
    net.add_arc("weather", "forecast")
    # P(forecast | weather): one column of three per weather state.
    net.set_node_definition("forecast", [0.6, 0.3, 0.1,
                                         0.1, 0.3, 0.6])

    net.add_node(NodeType.DECISION, "umbrella")
    states("umbrella", "take", "leave")
    net.add_arc("forecast", "umbrella")  # the forecast is read first

    net.add_node(NodeType.UTILITY, "comfort")
    net.add_arc("weather", "comfort")
    net.add_arc("umbrella", "comfort")
    # comfort(weather, umbrella): rain/take, rain/leave, dry/take, dry/leave
    net.set_node_definition("comfort", [70, 0, 80, 100])
    return net


def main():
    net = build()
    net.update_beliefs()
    options = net.get_outcome_ids("umbrella")
    values = net.get_node_value("umbrella")
    print("Expected comfort of each option, by forecast:")
    forecasts = net.get_outcome_ids("forecast")
    for i, forecast in enumerate(forecasts):
        eu = values[i * len(options):(i + 1) * len(options)]
        best = options[max(range(len(options)), key=lambda k: eu[k])]
        cells = "  ".join(f"{o}={v:6.2f}" for o, v in zip(options, eu))
        print(f"  forecast {forecast:<7} {cells}   -> {best}")

    # Once the forecast is known, only that row matters.
    net.set_evidence("forecast", "cloudy")
    net.update_beliefs()
    eu = net.get_node_value("umbrella")
    print("\nWith a cloudy forecast: " + ", ".join(f"{o}={v:.2f}" for o, v in zip(options, eu)))


if __name__ == "__main__":
    main()
