# Fresh toggle directories for the factory processes: "on" holds the TCAM-agent toggle, "off"
# holds no toggle file at all.
file(REMOVE_RECURSE ${DIR})
file(MAKE_DIRECTORY ${DIR}/on ${DIR}/off)
file(WRITE ${DIR}/on/NimbalTcam.json "{\"UseTcamAgentForPolicyQos\": true}\n")
