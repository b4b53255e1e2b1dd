#version 330 core
layout(location = 0) in vec3 in_Vertex;
layout(location = 1) in vec4 in_Color;
uniform mat4 u_mvpMatrix;
out vec4 b_color;
void main() {
   b_color = in_Color;
	gl_Position = u_mvpMatrix * vec4(in_Vertex.xyz, 1.f);
}