"""What the simulated access point can play, in playing order."""

from sim.scenarios import bandwidth, clients, core, roles, synch, traffic, vaps

SCENARIOS = (core.play, vaps.play, bandwidth.play, traffic.play, synch.play, clients.play, roles.play)
