' Recursion without end: a script error on its line, the application unharmed.
Function f(n): f = f(n + 1): End Function
f 0
