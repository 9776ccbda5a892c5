"""python3 -m pyquarn: the command line (see pyquarn.cli)."""
import sys

from pyquarn.cli import main

sys.exit(main())
