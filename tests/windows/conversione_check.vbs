' The component as a VBScript host reaches it, under cscript:
'   cscript //nologo conversione_check.vbs LIBRARY SOURCE
' with the same arguments and checks as conversione_check.js. VBScript passes
' its variables by reference, so the doctors' list of Test comes back here,
' and Err.Raise gives the component a number of its own.
Option Explicit

Dim passed, failed
passed = 0
failed = 0

Sub Check(what, holds)
  If holds Then
    passed = passed + 1
  Else
    failed = failed + 1
    WScript.Echo "FAILED: " & what
  End If
End Sub

Dim shell
Set shell = CreateObject("WScript.Shell")
Dim keys
keys = Array("HKCR\CLSID\{6B1F3C52-8E0A-4D7B-9C21-5A4E7D0B3F18}", "HKCR\cnvKaironAmbulor.Conversione", _
             "HKCR\TypeLib\{7A541A3C-DA1A-402C-BA8A-CC71E698D79E}", _
             "HKCR\Interface\{7602646F-A233-4599-A1B0-CA36796E1544}")

Function KeysPresent()
  Dim present, key
  present = ""
  For Each key In keys
    If shell.Run("reg query """ & key & """", 0, True) = 0 Then present = present & key & ";"
  Next
  KeysPresent = present
End Function

' An Interface of the script's own: every call that reaches it is kept in
' order as "Member:text", joined by "|".
' One member a line: Wine's VBScript doesn't parse a list after Public.
Class ScriptInterface
  Public Calls
  Public Throws
  Public FiltroDa
  Public FiltroA

  Private Sub Class_Initialize()
    Calls = ""
    Throws = False
    FiltroDa = ""
    FiltroA = ""
  End Sub

  Private Sub Keep(text)
    If Calls <> "" Then Calls = Calls & "|"
    Calls = Calls & text
  End Sub

  Public Sub AddMsg(text)
    Keep "AddMsg:" & text
    If Throws Then Err.Raise 1234, "ScriptInterface", "AddMsg rifiutato"
  End Sub

  Public Sub ChangeMsg(text)
    Keep "ChangeMsg:" & text
  End Sub

  Public Sub AddInfo(text)
    Keep "AddInfo:" & text
  End Sub

  Public Sub UpdateProgress(percent, stopRequested)
    Keep "UpdateProgress:" & percent
  End Sub
End Class

Sub RunChecks(library, source)
  Dim before, status, c, names, name, lista, opened, cause, host, expected, after, unknown
  before = KeysPresent()
  status = shell.Run("regsvr32 /s """ & library & """", 0, True)
  Check "regsvr32 registers " & library & " (status " & status & ")", status = 0
  If status <> 0 Then Exit Sub

  On Error Resume Next
  Set c = CreateObject("cnvKaironAmbulor.Conversione")
  If Err.Number <> 0 Then
    Check "Conversione is created by its name (error " & Err.Number & ": " & Err.Description & ")", False
    Err.Clear
  Else
    On Error GoTo 0
    names = Array(c.LastError, c.NomeProgramma, c.DefaultDSN, c.DefaultHost, c.DefaultFile, c.DefaultPort, _
                  c.DefaultDatabaseName, c.DefaultUsername, c.DefaultPassword, c.DefaultCartellaImmagini, _
                  c.ListaOpzioni)
    For Each name In names
      Check "a text property is a String, got " & TypeName(name), TypeName(name) = "String"
    Next
    Check "NomeProgramma is Ambulor", c.NomeProgramma = "Ambulor"
    Check "TipoOrigine is the Long 3, got " & TypeName(c.TipoOrigine), TypeName(c.TipoOrigine) = "Long" And c.TipoOrigine = 3
    Check "DefaultFile is GX_USER.FDB", c.DefaultFile = "GX_USER.FDB"
    Check "a name in another case reaches the same member", c.nomeprogramma = "Ambulor" And c.TIPOORIGINE = 3

    On Error Resume Next
    unknown = c.NonEsiste
    unknown = Err.Number
    Err.Clear
    On Error GoTo 0
    Check "a member that Conversione hasn't raises 438, got " & unknown, unknown = 438

    lista = "da togliere"
    Check "Test of a missing file is False", c.Test(source & "\manca\GX_USER.FDB", lista) = False
    Check "and leaves LastError empty, got """ & c.LastError & """", c.LastError = ""

    lista = "da togliere"
    opened = c.Test(source & "\GX_USER.FDB", lista)
    Check "Test of files that exist is True, got " & TypeName(opened) & " " & opened, opened = True
    Check "the doctors' list comes back empty, got """ & lista & """", lista = ""
    cause = c.CausaApertura
    Check "the cause names the missing client and its remedy: " & cause, _
          InStr(cause, "fbclient.dll") > 0 And InStr(cause, "Rimedio") > 0

    Set host = New ScriptInterface
    Check "Converti without a client is False", c.Converti("", "", host) = False
    expected = "AddMsg:Apertura database di origine|ChangeMsg:OK|AddMsg:Inizio conversione pazienti|ChangeMsg:Errore"
    Check "the calls reach the script's Interface in order, got " & host.Calls, host.Calls = expected
    Check "LastError gives the client's failure, got """ & c.LastError & """", _
          Left(c.LastError, 3) = "48 " And InStr(c.LastError, "fbclient.dll") > 0

    Set host = New ScriptInterface
    host.Throws = True
    Check "Converti whose AddMsg raises is False", c.Converti("", "", host) = False
    Check "the run ends at the failing AddMsg, got " & host.Calls, _
          host.Calls = "AddMsg:Apertura database di origine|ChangeMsg:Errore"
    Check "LastError gives the raiser's number, got """ & c.LastError & """", Left(c.LastError, 5) = "1234 "
    Set host = Nothing
    Set c = Nothing
  End If
  On Error GoTo 0

  status = shell.Run("regsvr32 /s /u """ & library & """", 0, True)
  Check "regsvr32 /u unregisters (status " & status & ")", status = 0
  after = KeysPresent()
  Check "the registry is as it was: before """ & before & """, after """ & after & """", after = before
End Sub

' Whatever stops the checks is reported as a failure, never as silence.
Sub Main()
  On Error Resume Next
  If WScript.Arguments.Count <> 2 Then
    Check "usage: conversione_check.vbs LIBRARY SOURCE", False
  Else
    RunChecks WScript.Arguments(0), WScript.Arguments(1)
  End If
  If Err.Number <> 0 Then Check "uncaught error " & Err.Number & ": " & Err.Description, False
End Sub

Main
WScript.Echo passed & " passed, " & failed & " failed"
If failed = 0 Then
  WScript.Quit 0
Else
  WScript.Quit 1
End If
