namespace NimbalHost {}
