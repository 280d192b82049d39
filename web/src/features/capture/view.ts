import { lazy } from "../../app/lazy";
import type { View } from "../../app/view";
import { FaultIcon } from "../../ui/icons";
import { label } from "./words";

export const view: View = {
  id: "capture",
  title: () => label("IDS_CAPTURE"),
  order: 32,
  icon: FaultIcon,
  component: lazy(async () => (await import("./capture-panel")).CapturePanel),
};
