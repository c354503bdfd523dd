// placeholder until the owner's implementation lands
