"""The simulated access point: everything around the daemon, in its own sandbox (sim/sandbox)."""
