// What the page uses of d3; bundled into d3.js.
export {select} from "d3-selection";
export {scaleLinear} from "d3-scale";
export {axisTop} from "d3-axis";
export {zoom, zoomIdentity} from "d3-zoom";
