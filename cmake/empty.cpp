// Placeholder for a subsystem that has no source yet.
