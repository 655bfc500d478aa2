"""Code generator of vantrel-cyclone: reads the module IDL files (the wire contract) into a model."""
