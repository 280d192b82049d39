import type { View } from "../../app/view";
import { FaultIcon } from "../../ui/icons";
import { CapturePanel } from "./capture-panel";
import { label } from "./words";

export const view: View = {
  id: "capture",
  title: () => label("IDS_CAPTURE"),
  order: 32,
  icon: FaultIcon,
  component: CapturePanel,
};
