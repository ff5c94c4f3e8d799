# Placeholder until the install rules stand here.
