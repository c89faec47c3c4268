// Recursion without end: a script error on its line, the application unharmed.
function f(n) { return f(n + 1); }
f(0);
