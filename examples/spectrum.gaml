<?xml version="1.0" encoding="UTF-8"?>
<GAML version="1.20" name="Kestro example">
<experiment name="example">
<trace name="absorbance" technique="IR">
<Xdata label="Wavenumbers (cm-1)" units="WAVENUMBER">
<values byteorder="INTEL" format="FLOAT32" numvalues="64">AAB6RQDgdkUAwHNFAKBwRQCAbUUAYGpFAEBnRQAgZEUAAGFFAOBdRQDAWkUAoFdFAIBURQBgUUUA
QE5FACBLRQAASEUA4ERFAMBBRQCgPkUAgDtFAGA4RQBANUUAIDJFAAAvRQDgK0UAwChFAKAlRQCA
IkUAYB9FAEAcRQAgGUUAABZFAOASRQDAD0UAoAxFAIAJRQBgBkUAQANFACAARQAA+kQAwPNEAIDt
RABA50QAAOFEAMDaRACA1EQAQM5EAADIRADAwUQAgLtEAEC1RAAAr0QAwKhEAICiRABAnEQAAJZE
AMCPRACAiUQAQINEAAB6RACAbUQAAGFEAIBURA==
</values>
<Ydata label="Absorbance" units="ABSORBANCE">
<values byteorder="INTEL" format="FLOAT32" numvalues="64">BFbOPpMYxD5I4bo+/KmxPsP1qD6uR6E+hxaZPoXrkT6DwIo+kxiEPm3nez6ynW8+HVpkPocWWT4X
2U4+pptEPlpkOz4OLTI+5/spPsHKIT6amRk+mG4SPpZDCz64HgU+bef7Pfyp8T1CYOU90SLbPWDl
0D3wp8Y9f2q8PVg5tD0xCKw9nu+nPcUgsD1CYOU9gZVDPsdLtz5t5xs/vp9aP/T9dD8QWFk/hxYZ
P6Aarz5WDi0+exSuPYcWWT3FIDA9CtcjPeOlGz28dBM9lkMLPQIrBz228/08j8L1PGiR7TwbL908
9P3UPM3MzDymm8Q8f2q8PFg5tDwxCKw8CtejPA==
</values>
</Ydata>
</Xdata>
</trace>
</experiment>
</GAML>
