// What the component's script hosts rest on, checked under Wine's cscript:
// a component created by its name, its members reached late-bound, an error
// that it raises caught with the number a script sees, and a name that no
// class has refused. Ends with WScript.Quit(0) only when every check held.
var passed = 0, failed = 0;

function check(what, holds) {
  if (holds) {
    passed++;
  } else {
    failed++;
    WScript.Echo("FAILED: " + what);
  }
}

// The error number that a script sees for a failed call: the low 16 bits of
// the failure code of a component's own errors (0x800A....).
function numberOf(error) {
  return error.number & 0xFFFF;
}

try {
  var dictionary = new ActiveXObject("Scripting.Dictionary");
  dictionary.Add("Cognome", "Rossi");
  dictionary.Add("Nome", "Niccol\u00F2");
  check("Count is 2", dictionary.Count === 2);
  check("Item gives the value", dictionary.Item("Cognome") === "Rossi");
  check("a text with an accented letter comes back whole", dictionary.Item("Nome") === "Niccol\u00F2");
  check("Exists finds a key", dictionary.Exists("Nome") === true);
  check("Exists doesn't find another", dictionary.Exists("Indirizzo") === false);

  var duplicate = 0;
  try {
    dictionary.Add("Cognome", "Bianchi");
  } catch (e) {
    duplicate = numberOf(e);
  }
  check("a key added twice raises 457, got " + duplicate, duplicate === 457);

  var created = true;
  try {
    new ActiveXObject("cnvKairon.NessunaClasse");
  } catch (e) {
    created = false;
  }
  check("a name that no class has isn't created", !created);
} catch (e) {
  check("uncaught error " + numberOf(e) + ": " + e.description, false);
}

WScript.Echo(passed + " passed, " + failed + " failed");
WScript.Quit(failed === 0 ? 0 : 1);
