include $(sort $(wildcard $(BR2_EXTERNAL_TARVIO_PATH)/package/*/*.mk))
