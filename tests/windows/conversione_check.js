// The component as a JScript host reaches it, under cscript:
//   cscript //nologo conversione_check.js LIBRARY SOURCE
// LIBRARY is cnvKairon.dll's path, SOURCE a folder holding GX_USER.FDB,
// GX_MEDIA.FDB and GX_DATA.FDB that pass the checks made before the client
// is loaded, on a machine with no Firebird client. Registers the library,
// creates Conversione by its name, reads its properties, tests a missing
// source and the folder, converts with an Interface of its own (once with an
// AddMsg that throws), and unregisters, leaving the registry as it was.
// Ends with WScript.Quit(0) only when every check held.
var passed = 0, failed = 0;

function check(what, holds) {
  if (holds) {
    passed++;
  } else {
    failed++;
    WScript.Echo("FAILED: " + what);
  }
}

function numberOf(error) {
  return error.number & 0xFFFF;
}

var shell = new ActiveXObject("WScript.Shell");
var keys = [
  "HKCR\\CLSID\\{6B1F3C52-8E0A-4D7B-9C21-5A4E7D0B3F18}",
  "HKCR\\cnvKaironAmbulor.Conversione",
  "HKCR\\TypeLib\\{7A541A3C-DA1A-402C-BA8A-CC71E698D79E}",
  "HKCR\\Interface\\{7602646F-A233-4599-A1B0-CA36796E1544}"
];

function keysPresent() {
  var present = [];
  for (var i = 0; i < keys.length; i++) {
    if (shell.Run("reg query \"" + keys[i] + "\"", 0, true) === 0) present.push(keys[i]);
  }
  return present.join(";");
}

// An Interface of the script's own: every call that reaches it is kept in
// order as "Member:text".
// The methods keep the calls through a closure: they don't rely on "this"
// when the component calls them.
function ScriptInterface(addMsgThrows) {
  var calls = [];
  this.calls = calls;
  this.FiltroDa = "";
  this.FiltroA = "";
  this.AddMsg = function (text) {
    calls.push("AddMsg:" + text);
    if (addMsgThrows) throw new Error(1234, "AddMsg rifiutato");
  };
  this.ChangeMsg = function (text) { calls.push("ChangeMsg:" + text); };
  this.AddInfo = function (text) { calls.push("AddInfo:" + text); };
  this.UpdateProgress = function (percent, stop) { calls.push("UpdateProgress:" + percent); };
}

function run(library, source) {
  var before = keysPresent();
  var registered = shell.Run("regsvr32 /s \"" + library + "\"", 0, true);
  check("regsvr32 registers " + library + " (status " + registered + ")", registered === 0);
  if (registered !== 0) return;

  try {
    var c = new ActiveXObject("cnvKaironAmbulor.Conversione");

    var texts = ["LastError", "NomeProgramma", "DefaultDSN", "DefaultHost", "DefaultFile", "DefaultPort",
                 "DefaultDatabaseName", "DefaultUsername", "DefaultPassword", "DefaultCartellaImmagini",
                 "ListaOpzioni"];
    for (var i = 0; i < texts.length; i++) {
      check(texts[i] + " is a text", typeof c[texts[i]] === "string");
    }
    check("NomeProgramma is Ambulor", c.NomeProgramma === "Ambulor");
    check("TipoOrigine is the number 3", typeof c.TipoOrigine === "number" && c.TipoOrigine === 3);
    check("DefaultFile is GX_USER.FDB", c.DefaultFile === "GX_USER.FDB");
    check("ListaOpzioni isn't empty", c.ListaOpzioni.length > 0);
    check("a name in another case reaches the same member", c.nomeprogramma === "Ambulor" && c.TIPOORIGINE === 3);

    // JScript reads a name that the object doesn't know as undefined
    // without raising, so the unknown name is called.
    var unknown = 0;
    try {
      c.NonEsiste();
    } catch (e) {
      unknown = numberOf(e);
    }
    check("a member that Conversione hasn't raises 438, got " + unknown, unknown === 438);

    var lista = "";
    check("Test of a missing file is false", c.Test(source + "\\manca\\GX_USER.FDB", lista) === false);
    check("and leaves LastError empty, got \"" + c.LastError + "\"", c.LastError === "");

    var opened = c.Test(source + "\\GX_USER.FDB", lista);
    check("Test of files that exist is true", opened === true);
    var cause = c.CausaApertura;
    check("the cause names the missing client and its remedy: " + cause,
          cause.indexOf("fbclient.dll") >= 0 && cause.indexOf("Rimedio") >= 0);

    var host = new ScriptInterface(false);
    check("Converti without a client is false", c.Converti("", "", host) === false);
    var expected = "AddMsg:Apertura database di origine|ChangeMsg:OK|AddMsg:Inizio conversione pazienti|ChangeMsg:Errore";
    check("the calls reach the script's Interface in order, got " + host.calls.join("|"),
          host.calls.join("|") === expected);
    check("LastError gives the client's failure, got \"" + c.LastError + "\"",
          c.LastError.indexOf("48 ") === 0 && c.LastError.indexOf("fbclient.dll") >= 0);

    var thrower = new ScriptInterface(true);
    check("Converti whose AddMsg throws is false", c.Converti("", "", thrower) === false);
    check("the run ends at the failing AddMsg, got " + thrower.calls.join("|"),
          thrower.calls.join("|") === "AddMsg:Apertura database di origine|ChangeMsg:Errore");
    check("LastError gives the failure of AddMsg with a number, got \"" + c.LastError + "\"",
          /^-?[0-9]+ /.test(c.LastError));
    c = null;
    CollectGarbage();
  } catch (e) {
    check("uncaught error " + numberOf(e) + ": " + e.description, false);
  }

  var unregistered = shell.Run("regsvr32 /s /u \"" + library + "\"", 0, true);
  check("regsvr32 /u unregisters (status " + unregistered + ")", unregistered === 0);
  var after = keysPresent();
  check("the registry is as it was: before \"" + before + "\", after \"" + after + "\"", after === before);
}

try {
  if (WScript.Arguments.length !== 2) throw new Error(2, "usage: conversione_check.js LIBRARY SOURCE");
  run(WScript.Arguments(0), WScript.Arguments(1));
} catch (e) {
  check("uncaught error " + numberOf(e) + ": " + e.description, false);
}

WScript.Echo(passed + " passed, " + failed + " failed");
WScript.Quit(failed === 0 ? 0 : 1);
