// Nothing: a module of this is there for its version.
